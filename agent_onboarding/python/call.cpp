/// \file What calls and attributes come down to, whatever their names and arguments.
#include "python/call.hpp"

namespace py::detail {

namespace {

/// Whether the object is a module whose namespace is asked first: only the special names of the module type come before
/// a module's own.
bool is_in_namespace(PyObject* object, const Name& name) noexcept {
    return PyModule_CheckExact(object) && !name.is_special();
}

/// Null where the general look-up has to decide.
PyObject* module_attribute(PyObject* module, const Name& name) {
    PyObject* value = nullptr;
    check(compat::find_item(PyModule_GetDict(module), name.ptr(), &value));
    return value;
}

/// `dict.get(key)` of a real dict, whose methods cannot be rebound.
std::optional<Object> item_of(PyObject* dict, const Object& key) {
    PyObject* value = nullptr;
    if (check(compat::find_item(dict, key.ptr(), &value)) == 0) return std::nullopt;
    return Object::steal(value);
}

PyObject* keywords_of(Stack stack) { return stack.shape.keywords != nullptr ? stack.shape.keywords->ptr() : nullptr; }

}  // namespace

// Entering a Python function directly would save some nanoseconds, and the check that it left no exception behind, which
// it does when the interpreter has no memory.
PyObject* call(PyObject* callee, Stack stack) {
    return PyObject_Vectorcall(callee, stack.places + 2, stack.shape.positional | PY_VECTORCALL_ARGUMENTS_OFFSET,
                               keywords_of(stack));
}

PyObject* call_method(PyObject* self, const Name& name, Stack stack) {
    if (is_in_namespace(self, name))
        if (PyObject* function = module_attribute(self, name)) return call(Object::steal(function).ptr(), stack);
    stack.places[1] = self;
    return PyObject_VectorcallMethod(name.ptr(), stack.places + 1,
                                     (stack.shape.positional + 1) | PY_VECTORCALL_ARGUMENTS_OFFSET, keywords_of(stack));
}

PyObject* call_path(PyObject* object, Path path, Stack stack) {
    if (path.size() == 1) return call_method(object, *path.front(), stack);
    return call_method(Object::steal(get_path(object, path.first(path.size() - 1))).ptr(), *path.back(), stack);
}

PyObject* get_specially(PyObject* object, const Name& name) {
    if (is_in_namespace(object, name))
        if (PyObject* value = module_attribute(object, name)) return value;
    return PyObject_GetAttr(object, name.ptr());
}

PyObject* refuse_attribute(PyObject* object, const Name& name) noexcept {
    if (PyErr_ExceptionMatches(PyExc_AttributeError) == 0) return nullptr;
    PyObject* exception = PyErr_GetRaisedException();
    auto* error = reinterpret_cast<PyAttributeErrorObject*>(exception);
    if (error->name == nullptr && error->obj == nullptr) {
        error->name = Py_NewRef(name.ptr());
        error->obj = Py_NewRef(object);
    }
    PyErr_SetRaisedException(exception);
    return nullptr;
}

PyObject* get_path(PyObject* object, Path path) {
    Object owner = Object::borrow(object);
    for (const Name* name : path.first(path.size() - 1)) owner = Object::steal(get(owner.ptr(), *name));
    return get(owner.ptr(), *path.back());
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
