/// \file Workspace files are read and rewritten whole, as UTF-8.
#pragma once

#include "python/blocks.hpp"
#include "python/module.hpp"

namespace agent_onboarding {

inline py::Object open_text(const py::Object& path, const py::Object& mode) {
    using namespace py::literals;
    return py::builtin("open"_s)(path, mode, py::kw<"encoding">("utf-8"_s));
}

inline py::Object read_text(const py::Object& path) {
    using namespace py::literals;
    return py::with(open_text(path, "r"_s), [](const py::Object& file) { return file.call<"read">(); });
}

inline py::Object write_text(const py::Object& path, const py::Object& content) {
    using namespace py::literals;
    return py::with(open_text(path, "w"_s), [&](const py::Object& file) { return file.call<"write">(content); });
}

}  // namespace agent_onboarding
