/// \file Which names may become a directory under the data directory.
#pragma once

#include "python/text.hpp"

namespace agent_onboarding {

/// Neither "." nor "..", and no slash, backslash or NUL; the text is stripped and not empty.
inline bool is_safe_path_segment(const py::Object& text) {
    using namespace py::literals;
    return text != "."_s && text != ".."_s && !py::contains_any<"/\\\0">(text);
}

}  // namespace agent_onboarding
