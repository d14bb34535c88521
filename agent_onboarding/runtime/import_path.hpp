/// \file The data directory on the interpreter's import path.
#pragma once

#include "python/module.hpp"

namespace agent_onboarding {

/// Puts the directory's real path in front, once.
inline void put_on_import_path(py::Module m, const py::Object& directory) {
    const py::Object runtime_root = m.call<"os.path.realpath">(directory);
    if (!contains(m.get<"sys.path">(), runtime_root)) m.call<"sys.path.insert">(0, runtime_root);
}

}  // namespace agent_onboarding
