/// \file The `import` statements.
#include "python/error.hpp"
#include "python/module.hpp"

namespace py {

Object import_module(Module m, const Object& name, const Object& from_list) {
    const auto importer = find_item(m.state().builtins(), "__import__"_s);
    if (!importer.has_value()) raise(PyExc_ImportError, "__import__ not found"_s);
    return invoke{*importer, name, m.globals(), none, from_list, 0};
}

namespace {

/// Lets the interpreter execute the statement, which knows where else a missing name may be and words the ImportError.
Object execute_import(Module m, const Object& package_name, const Object& name) {
    const Object statement = fstring<"from {} import {}">{package_name, name};
    const char* source = PyUnicode_AsUTF8(statement.ptr());
    if (source == nullptr) throw_pending();
    const Object scope = dict{};
    scope.set_item<"__builtins__">(m.state().builtins());
    Object::steal(PyRun_String(source, Py_file_input, scope.ptr(), scope.ptr()));
    return scope.item(name);
}

}  // namespace

Object imported_name(Module m, const Object& package, const Object& package_name, const Object& name) {
    if (auto found = package.find_attr(name)) return *std::move(found);
    return execute_import(m, package_name, name);
}

Object import_from(Module m, const Object& package_name, const Object& name) {
    const Object package = import_module(m, package_name, tuple{name});
    return imported_name(m, package, package_name, name);
}

}  // namespace py
