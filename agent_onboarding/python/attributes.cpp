/// \file Look-up of attributes and items, with a short way for exact modules and dicts.
#include "python/attributes.hpp"

#include "python/call.hpp"
#include "python/compat.hpp"

namespace py {

std::optional<Object> find_item(const Object& dict, const Object& key) {
    PyObject* value = nullptr;
    if (check(compat::find_item(dict.ptr(), key.ptr(), &value)) == 0) return std::nullopt;
    return Object::steal(value);
}

std::optional<Object> Object::find_attr(const Object& name) const {
    PyObject* value = nullptr;
    if (check(compat::find_attribute(pointer_, name.pointer_, &value)) == 0) return std::nullopt;
    return Object::steal(value);
}

Object Object::get(const Object& key) const {
    if (!is_exact_dict()) return call<"get">(key);
    return find_item(*this, key).value_or(none);
}

namespace detail {

namespace {

/// What an exact module's own namespace binds to the name; null where the general look-up has to decide. Only
/// `__class__`, `__dict__` and `__annotations__` come before that, which nobody asks a module for.
PyObject* module_attribute(const Object& object, const Name& name) {
    return PyModule_CheckExact(object.ptr()) ? name.find_in(PyModule_GetDict(object.ptr())) : nullptr;
}

}  // namespace

Object attribute(const Object& object, const Name& name) {
    PyObject* value = module_attribute(object, name);
    return Object::steal(value != nullptr ? value : PyObject_GetAttr(object.ptr(), name.get().ptr()));
}

std::optional<Object> find_attribute(const Object& object, const Name& name) {
    if (PyObject* value = module_attribute(object, name)) return Object::steal(value);
    return object.find_attr(name.get());
}

}  // namespace detail

}  // namespace py
