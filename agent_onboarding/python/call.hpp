/// \file Calls, attributes and keyword arguments of objects.
#pragma once

#include <array>

#include "python/compat.hpp"
#include "python/names.hpp"

namespace py {

/// `name=value` in a call.
template <Literal L, typename Value>
struct Keyword {
    static constexpr auto name = L;
    Value value;  // a reference where the caller has the object
};

template <Literal L>
Keyword<L, const Object&> kw(const Object& value) {
    return {value};
}
template <Literal L, typename Value>
Keyword<L, Object> kw(const Value& value) {
    return {to_object(value)};
}
template <Literal L, typename Value>
const Keyword<L, Value>& to_object(const Keyword<L, Value>& keyword) noexcept {
    return keyword;
}

namespace detail {

template <typename T>
inline constexpr bool is_keyword = false;
template <Literal L, typename Value>
inline constexpr bool is_keyword<Keyword<L, Value>> = true;

template <typename... Arguments>
inline constexpr std::size_t keyword_count = (std::size_t{0} + ... + (is_keyword<Arguments> ? 1U : 0U));

template <typename Argument>
consteval std::string_view keyword_text() {
    if constexpr (is_keyword<Argument>)
        return Argument::name.view();
    else
        return {};
}

/// "first,second" of the keywords among the arguments.
template <typename... Arguments>
consteval auto joined_keywords() {
    char text[(keyword_text<Arguments>().size() + ...) + keyword_count<Arguments...>]{};
    char* end = text;
    for (const std::string_view name : {keyword_text<Arguments>()...}) {
        if (name.empty()) continue;
        if (end != text) *end++ = ',';
        end = std::ranges::copy(name, end).out;
    }
    return Literal{text};
}

template <typename... Arguments>
consteval const Name* keyword_names() {
    if constexpr (keyword_count<Arguments...> == 0)
        return nullptr;
    else
        return &tuple_name<joined_keywords<Arguments...>()>;
}

inline PyObject* pointer(const Object& object) noexcept { return object.ptr(); }
template <Literal L, typename Value>
PyObject* pointer(const Keyword<L, Value>& keyword) noexcept {
    return keyword.value.ptr();
}

/// What is known of a call while compiling: how many arguments are positional, and the names of the others.
struct Shape {
    std::size_t positional;
    const Name* keywords;  // null where there are none
};

template <typename... Arguments>
inline constexpr Shape shape{sizeof...(Arguments) - keyword_count<Arguments...>, keyword_names<Arguments...>()};

/// The arguments of a call: places for the callee's use and for `self`, then positional arguments, then keywords.
struct Stack {
    PyObject** places;
    const Shape& shape;
};

template <typename Body, typename... Arguments>
Object with_stack(Body body, const Arguments&... arguments) {
    PyObject* places[] = {nullptr, nullptr, pointer(arguments)...};
    return Object::steal(body(Stack{places, shape<Arguments...>}));
}

// These return a new reference, or null with an exception set: an `Object` would come back through memory. What they let
// go of meanwhile is let go of with the exception set, as the interpreter does with what it called.

PyObject* call(PyObject* callee, Stack stack);
PyObject* call_method(PyObject* self, const Name& name, Stack stack);
/// Calls what lies at the end of the path.
PyObject* call_path(PyObject* object, Path path, Stack stack);

PyObject* get_specially(PyObject* object, const Name& name);
/// Says in the AttributeError of a getter what was asked for, where the getter did not. Returns null.
PyObject* refuse_attribute(PyObject* object, const Name& name) noexcept;
/// `PyObject_GetAttr`, which takes a detour to the way in which nearly every object is asked.
inline PyObject* get(PyObject* object, const Name& name) {
    if (Py_TYPE(object)->tp_getattro != PyObject_GenericGetAttr) [[unlikely]]
        return get_specially(object, name);
    PyObject* value = PyObject_GenericGetAttr(object, name.ptr());
    return value != nullptr ? value : refuse_attribute(object, name);
}
PyObject* get_path(PyObject* object, Path path);

std::optional<Object> find(PyObject* object, const Name& name);
void set(PyObject* object, const Name& name, const Object& value);
/// `mapping.get(key)`, `mapping.get(key, otherwise)`
Object lookup(PyObject* mapping, const Object& key, const Object* otherwise);
Object lookup_or_make(PyObject* mapping, const Object& key, Object make_default());

}  // namespace detail

/// Calls a class or function of the interpreter itself.
template <typename... Arguments>
Object call(PyObject* builtin, const Arguments&... arguments) {
    return detail::with_stack([=](detail::Stack stack) { return detail::call(builtin, stack); },
                              to_object(arguments)...);
}

template <typename... Arguments>
Object Object::operator()(const Arguments&... arguments) const {
    return py::call(pointer_, arguments...);
}

template <Literal L, typename... Arguments>
Object Object::call(const Arguments&... arguments) const {
    return detail::with_stack([this](detail::Stack stack) { return detail::call_path(pointer_, path<L>, stack); },
                              to_object(arguments)...);
}

template <Literal L>
Object Object::get() const {
    if constexpr (segment_count<L> == 1) return Object::steal(detail::get(pointer_, string_name<L>));
    return Object::steal(detail::get_path(pointer_, path<L>));
}

template <Literal L>
std::optional<Object> Object::find() const {
    return detail::find(pointer_, string_name<L>);
}

template <Literal L, typename Value>
void Object::set(const Value& value) const {
    detail::set(pointer_, string_name<L>, to_object(value));
}

template <Literal L>
void Object::remove() const {
    check(PyObject_DelAttr(pointer_, string_name<L>.ptr()));
}

template <Literal L>
Object Object::item() const {
    return item(string_name<L>.get());
}

template <Literal L, typename Value>
void Object::set_item(const Value& value) const {
    set_item(string_name<L>.get(), to_object(value));
}

inline Object Object::lookup(const Object& key) const { return detail::lookup(pointer_, key, nullptr); }

template <Literal L>
Object Object::lookup() const {
    return detail::lookup(pointer_, string_name<L>.get(), nullptr);
}

template <Literal L, typename Default>
Object Object::lookup(const Default& otherwise) const {
    const Object& value = to_object(otherwise);
    return detail::lookup(pointer_, string_name<L>.get(), &value);
}

template <Literal L>
Object Object::lookup(Object make_default()) const {
    return detail::lookup_or_make(pointer_, string_name<L>.get(), make_default);
}

/// `getattr(x, "name", None)`
template <Literal L>
Object get_or_none(const Object& object) {
    return object.find<L>().value_or(none());
}

}  // namespace py
