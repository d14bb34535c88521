/// \file JSON files are read whole, as UTF-8.
#pragma once

#include "python/blocks.hpp"
#include "python/module.hpp"

namespace agent_onboarding {

inline py::Object read_json(py::Module m, const py::Object& path) {
    using namespace py::literals;
    return py::with(py::builtin("open"_s)(path, "r"_s, py::kw<"encoding">("utf-8"_s)),
                    [&](const py::Object& file) { return m.call<"json.load">(file); });
}

}  // namespace agent_onboarding
