/// \file Which names may become a directory under the data directory.
#pragma once

#include "python/text.hpp"

namespace agent_onboarding {

/// True unless the text is empty, "." or "..", or has a slash, backslash or NUL. Callers strip it first.
inline bool is_safe_path_segment(const py::Object& text) {
    using namespace py::literals;
    return truth(text) && text != "."_s && text != ".."_s && !py::contains_any<"/\\\0">(text);
}

}  // namespace agent_onboarding
