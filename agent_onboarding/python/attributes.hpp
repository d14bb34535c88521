/// \file Attributes, and the items of mappings.
#pragma once

#include "python/names.hpp"

namespace py {

namespace detail {

Object attribute(const Object& object, const Name& name);
std::optional<Object> find_attribute(const Object& object, const Name& name);

}  // namespace detail

/// `dict[key]` of an exact dict, where there is one.
std::optional<Object> find_item(const Object& dict, const Object& key);

template <Literal L>
Object Object::attr() const {
    if constexpr (is_dotted<L>)
        return attr<parent<L>>().template attr<last_name<L>>();
    else
        return detail::attribute(*this, string_name<L>);
}

template <Literal L>
std::optional<Object> Object::find_attr() const {
    return detail::find_attribute(*this, string_name<L>);
}

template <Literal L, typename Item>
void Object::set_attr(const Item& value) const {
    set_attr(string_name<L>.get(), to_object(value));
}

template <Literal L>
void Object::del_attr() const {
    check(PyObject_DelAttr(pointer_, string_name<L>.get().ptr()));
}

template <Literal L>
Object Object::item() const {
    return item(string_name<L>.get());
}

template <Literal L, typename Item>
void Object::set_item(const Item& value) const {
    set_item(string_name<L>.get(), to_object(value));
}

template <Literal L>
Object Object::get() const {
    return get(string_name<L>.get());
}

template <Literal L, typename Default>
Object Object::get(const Default& otherwise) const {
    if (!is_exact_dict()) return call<"get">(string_name<L>.get(), otherwise);
    auto value = find_item(*this, string_name<L>.get());
    return value.has_value() ? *std::move(value) : to_object(otherwise);
}

/// `getattr(x, "name", None)`
template <Literal L>
Object attr_or_none(const Object& object) {
    return object.find_attr<L>().value_or(none);
}

}  // namespace py
