/// \file Text files are read and written whole, as UTF-8.
#pragma once

#include "python/blocks.hpp"
#include "python/module.hpp"

namespace agent_onboarding {

/// `with open(path, mode, encoding="utf-8") as file: return body(file)`
template <typename Body>
py::Object with_text_file(py::Module m, const py::Object& path, const py::Object& mode, const Body& body) {
    using namespace py::literals;
    return py::with(m.call<"open">(path, mode, py::kw<"encoding">("utf-8"_s)), body);
}

inline py::Object read_text(py::Module m, const py::Object& path) {
    using namespace py::literals;
    return with_text_file(m, path, "r"_s, [](const py::Object& file) { return file.call<"read">(); });
}

inline py::Object write_text(py::Module m, const py::Object& path, const py::Object& content) {
    using namespace py::literals;
    return with_text_file(m, path, "w"_s, [&](const py::Object& file) { return file.call<"write">(content); });
}

}  // namespace agent_onboarding
