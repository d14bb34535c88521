/// \file Calls, attributes and keyword arguments of objects.
#pragma once

#include <array>
#include <type_traits>

#include "python/compat.hpp"
#include "python/object.hpp"

namespace py {

template <Literal L>
struct Keyword {
    static constexpr auto name = L;
    Object value;
};

/// `name=value` in a call.
template <Literal L, typename Value>
Keyword<L> kw(const Value& value) {
    return {to_object(value)};
}
template <Literal L>
const Keyword<L>& to_object(const Keyword<L>& keyword) noexcept {
    return keyword;
}

namespace detail {

template <typename T>
inline constexpr bool is_keyword = false;
template <Literal L>
inline constexpr bool is_keyword<Keyword<L>> = true;

/// "first,second" of the keywords among the arguments.
template <typename... Arguments>
consteval auto joined_keywords() {
    constexpr std::size_t size = [] {
        std::size_t total = 0;
        ((total +=
          [] {
              if constexpr (is_keyword<Arguments>) return Arguments::name.view().size() + 1;
              return std::size_t{0};
          }()),
         ...);
        return total;
    }();
    char text[size]{};
    char* end = text;
    (
        [&] {
            if constexpr (is_keyword<Arguments>) {
                if (end != text) *end++ = ',';
                end = std::copy(Arguments::name.view().begin(), Arguments::name.view().end(), end);
            }
        }(),
        ...);
    return Literal<size>{text};
}

template <typename... Arguments>
inline constexpr std::size_t keyword_count = (std::size_t{0} + ... + (is_keyword<Arguments> ? 1U : 0U));

template <typename... Arguments>
PyObject* keyword_names() noexcept {
    if constexpr (keyword_count<Arguments...> == 0)
        return nullptr;
    else
        return names_in_use[tuple_slot<joined_keywords<Arguments...>()>.index()];
}

inline PyObject* pointer(const Object& object) noexcept { return object.ptr(); }
template <Literal L>
PyObject* pointer(const Keyword<L>& keyword) noexcept {
    return keyword.value.ptr();
}

/// The first place of the stack belongs to the callee, so that a bound method needs no copy of it.
template <typename... Arguments>
Object vectorcall(PyObject* callee, const Arguments&... arguments) {
    PyObject* stack[] = {nullptr, pointer(arguments)...};
    constexpr std::size_t positional = sizeof...(Arguments) - keyword_count<Arguments...>;
    return Object::steal(PyObject_Vectorcall(callee, stack + 1, positional | PY_VECTORCALL_ARGUMENTS_OFFSET,
                                             keyword_names<Arguments...>()));
}

template <typename... Arguments>
Object vectorcall_method(PyObject* name, PyObject* self, const Arguments&... arguments) {
    PyObject* stack[] = {nullptr, self, pointer(arguments)...};
    constexpr std::size_t positional = 1 + sizeof...(Arguments) - keyword_count<Arguments...>;
    return Object::steal(PyObject_VectorcallMethod(name, stack + 1, positional | PY_VECTORCALL_ARGUMENTS_OFFSET,
                                                   keyword_names<Arguments...>()));
}

/// An attribute of a real module, or null where the general look-up has to decide. Only the special names of the
/// module type come before a module's own.
template <Literal L>
PyObject* module_attribute(PyObject* object) {
    PyObject* value = nullptr;
    if constexpr (!L.view().starts_with("__"))
        if (PyModule_CheckExact(object)) check(compat::find_item(PyModule_GetDict(object), interned<L>(), &value));
    return value;
}

}  // namespace detail

/// Calls a class or function of the interpreter itself.
template <typename... Arguments>
Object call(PyObject* builtin, const Arguments&... arguments) {
    return detail::vectorcall(builtin, to_object(arguments)...);
}

template <typename... Arguments>
Object Object::operator()(const Arguments&... arguments) const {
    return detail::vectorcall(pointer_, to_object(arguments)...);
}

template <Literal L, typename... Arguments>
Object Object::call(const Arguments&... arguments) const {
    if constexpr (is_dotted<L>)
        return get<owner<L>>().template call<member<L>>(arguments...);
    else if (PyObject* function = detail::module_attribute<L>(pointer_))
        return Object::steal(function)(arguments...);
    else
        return detail::vectorcall_method(interned<L>(), pointer_, to_object(arguments)...);
}

template <Literal L>
Object Object::get() const {
    if constexpr (is_dotted<L>)
        return get<head<L>>().template get<tail<L>>();
    else if (PyObject* value = detail::module_attribute<L>(pointer_))
        return Object::steal(value);
    else
        return Object::steal(PyObject_GetAttr(pointer_, interned<L>()));
}

template <Literal L>
std::optional<Object> Object::find() const {
    PyObject* value = nullptr;
    if (check(compat::find_attribute(pointer_, interned<L>(), &value)) == 0) return std::nullopt;
    return Object::steal(value);
}

template <Literal L, typename Value>
void Object::set(const Value& value) const {
    check(PyObject_SetAttr(pointer_, interned<L>(), to_object(value).ptr()));
}

template <Literal L, typename Value>
void Object::set_item(const Value& value) const {
    check(PyObject_SetItem(pointer_, interned<L>(), to_object(value).ptr()));
}

/// The `get` of a real dict cannot be rebound, so a dict is asked directly.
template <std::same_as<Object>... Default>
Object Object::lookup(const Object& key, const Default&... otherwise) const {
    if (!PyDict_CheckExact(pointer_)) return call<"get">(key, otherwise...);
    PyObject* value = nullptr;
    if (check(compat::find_item(pointer_, key.pointer_, &value)) != 0) return Object::steal(value);
    if constexpr (sizeof...(otherwise) == 0)
        return none();
    else
        return (otherwise, ...);
}

template <Literal L, typename... Default>
Object Object::lookup(const Default&... otherwise) const {
    return lookup(Object::borrow(interned<L>()), Object{to_object(otherwise)}...);
}

/// `getattr(x, "name", None)`
template <Literal L>
Object get_or_none(const Object& object) {
    std::optional<Object> found = object.find<L>();
    return found.has_value() ? *std::move(found) : none();
}

}  // namespace py
