/// \file Look-up of attributes and items, with a short way for exact modules and dicts.
#include "python/attributes.hpp"

#include "python/call.hpp"
#include "python/compat.hpp"

namespace py {

std::optional<Object> find_item(PyObject* dict, const Object& key) {
    PyObject* value = nullptr;
    if (check(compat::find_item(dict, key.ptr(), &value)) == 0) return std::nullopt;
    return Object::steal(value);
}

std::optional<Object> Object::find_attr(const Object& name) const {
    PyObject* value = nullptr;
    if (check(compat::find_attribute(pointer_, name.pointer_, &value)) == 0) return std::nullopt;
    return Object::steal(value);
}

namespace detail {

std::optional<Object> module_attribute(const Object& object, const Name& name) {
    if (!PyModule_CheckExact(object.ptr()) || name.is_special()) return std::nullopt;
    return find_item(PyModule_GetDict(object.ptr()), name.get());
}

Object attribute(const Object& object, const Name& name) {
    if (auto value = module_attribute(object, name)) return *std::move(value);
    return Object::steal(PyObject_GetAttr(object.ptr(), name.get().ptr()));
}

std::optional<Object> find_attribute(const Object& object, const Name& name) {
    if (auto value = module_attribute(object, name)) return value;
    return object.find_attr(name.get());
}

Object attribute(const Object& object, Path path) {
    Object value = object;
    for (const Name* name : path) value = attribute(value, *name);
    return value;
}

Object mapping_get(const Object& mapping, const Object& key, const Object* otherwise) {
    if (mapping.is_exact_dict()) return find_item(mapping, key).value_or(otherwise != nullptr ? *otherwise : none);
    return otherwise != nullptr ? mapping.call<"get">(key, *otherwise) : mapping.call<"get">(key);
}

}  // namespace detail

}  // namespace py
