/// \file The `import` statements.
#pragma once

#include "python/module.hpp"

namespace py {

/// `import name`, bound to the top-level package; the module `name` itself where `from_list` is not None.
Object import_module(Module m, const Object& name, const Object& from_list = none);
/// What `from package import name` binds, once the package was imported.
Object imported_name(Module m, const Object& package, const Object& package_name, const Object& name);
/// `from package import name`
Object import_from(Module m, const Object& package_name, const Object& name);

}  // namespace py
