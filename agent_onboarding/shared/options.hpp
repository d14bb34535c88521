/// \file Reading and writing the process-wide options.
#pragma once

#include "python/module.hpp"

namespace agent_onboarding {

/// `_config.get("key")`, `_config.get("key", default)`
template <py::Literal Key, typename... Default>
py::Object option(py::Module m, const Default&... otherwise) {
    return m.get<"_config">().get<Key>(otherwise...);
}

/// `_config["key"] = value`
template <py::Literal Key>
void set_option(py::Module m, const py::Object& value) {
    m.get<"_config">().set_item<Key>(value);
}

}  // namespace agent_onboarding
