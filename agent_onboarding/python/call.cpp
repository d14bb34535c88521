/// \file What calls and attributes come down to, whatever their names and arguments.
#include "python/call.hpp"

namespace py::detail {

namespace {

/// An attribute of a real module, or null where the general look-up has to decide. Only the special names of the
/// module type come before a module's own.
PyObject* module_attribute(PyObject* object, const Name& name) {
    PyObject* value = nullptr;
    if (PyModule_CheckExact(object) && !name.is_special())
        check(compat::find_item(PyModule_GetDict(object), name.ptr(), &value));
    return value;
}

/// `dict.get(key)` of a real dict, whose methods cannot be rebound.
std::optional<Object> item_of(PyObject* dict, const Object& key) {
    PyObject* value = nullptr;
    if (check(compat::find_item(dict, key.ptr(), &value)) == 0) return std::nullopt;
    return Object::steal(value);
}

PyObject* keywords_of(const Stack& stack) { return stack.keywords != nullptr ? stack.keywords->ptr() : nullptr; }

}  // namespace

// Entering a Python function directly would save some nanoseconds, and the check that it left no exception behind, which
// it does when the interpreter has no memory.
Object call(PyObject* callee, const Stack& stack) {
    return Object::steal(PyObject_Vectorcall(callee, stack.places + 2,
                                             stack.positional | PY_VECTORCALL_ARGUMENTS_OFFSET, keywords_of(stack)));
}

Object call_method(PyObject* self, const Name& name, const Stack& stack) {
    if (PyObject* function = module_attribute(self, name)) return call(Object::steal(function).ptr(), stack);
    stack.places[1] = self;
    return Object::steal(PyObject_VectorcallMethod(
        name.ptr(), stack.places + 1, (stack.positional + 1) | PY_VECTORCALL_ARGUMENTS_OFFSET, keywords_of(stack)));
}

Object call_path(PyObject* object, Path path, const Stack& stack) {
    if (path.size() == 1) return call_method(object, *path.front(), stack);
    return call_method(get_path(object, path.first(path.size() - 1)).ptr(), *path.back(), stack);
}

Object get(PyObject* object, const Name& name) {
    if (PyObject* value = module_attribute(object, name)) return Object::steal(value);
    return Object::steal(PyObject_GetAttr(object, name.ptr()));
}

Object get_path(PyObject* object, Path path) {
    Object value = get(object, *path.front());
    for (const Name* name : path.subspan(1)) value = get(value.ptr(), *name);
    return value;
}

std::optional<Object> find(PyObject* object, const Name& name) {
    PyObject* value = nullptr;
    if (check(compat::find_attribute(object, name.ptr(), &value)) == 0) return std::nullopt;
    return Object::steal(value);
}

void set(PyObject* object, const Name& name, const Object& value) {
    check(PyObject_SetAttr(object, name.ptr(), value.ptr()));
}

Object lookup(PyObject* mapping, const Object& key, const Object* otherwise) {
    if (PyDict_CheckExact(mapping)) return item_of(mapping, key).value_or(otherwise != nullptr ? *otherwise : none());
    const Object get = Object::steal(PyObject_GetAttr(mapping, "get"_s.ptr()));
    return otherwise != nullptr ? get(key, *otherwise) : get(key);
}

Object lookup_or_make(PyObject* mapping, const Object& key, Object make_default()) {
    if (!PyDict_CheckExact(mapping)) {
        const Object otherwise = make_default();
        return lookup(mapping, key, &otherwise);
    }
    std::optional<Object> value = item_of(mapping, key);
    return value.has_value() ? *std::move(value) : make_default();
}

}  // namespace py::detail
