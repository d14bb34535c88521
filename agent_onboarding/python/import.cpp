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

/// The attribute, where it is text, as only then the statement uses it.
template <Literal L>
Object text_or_none(const Object& package) {
    const Object text = attr_or_none<L>(package);
    return text.is_exact_str() ? text : none;
}

}  // namespace

// Not run as a statement, as CPython's compiler crashes without memory.
Object imported_name(const Object& package, const Object& name) {
    if (auto found = package.find_attr(name)) return *std::move(found);
    const Object package_name = text_or_none<"__name__">(package);
    if (!package_name.is_none()) {
        const Object module_name = fstring<"{}.{}">{package_name, name};
        // A submodule is bound to its package when its import has ended.
        if (PyObject* module = PyImport_GetModule(module_name.ptr())) return Object::steal(module);
        if (PyErr_Occurred() != nullptr) throw_pending();
    }
    const Object path = text_or_none<"__file__">(package);
    Object source = repr(package_name.is_none() ? "<unknown module name>"_s : package_name);
    if (!path.is_none() && truth(attr_or_none<"_initializing">(attr_or_none<"__spec__">(package))))
        source = fstring<"partially initialized module {} (most likely due to a circular import)">{source};
    const Object& place = path.is_none() ? "unknown location"_s : path;
    raise(invoke{PyExc_ImportError, fstring<"cannot import name {} from {} ({})">{repr(name), source, place},
                 kw<"name">(package_name), kw<"path">(path), kw<"name_from">(name)});
}

Object import_from(Module m, const Object& package_name, const Object& name) {
    return imported_name(import_module(m, package_name, tuple{name}), name);
}

}  // namespace py
