/// \file Calls with positional and keyword arguments.
#pragma once

#include "python/attributes.hpp"

namespace py {

/// `name=value` in a call, made among its arguments, so that what it refers to lives as long.
template <Literal L, typename T>
struct Keyword {
    T&& value;
};

template <Literal L, typename T>
inline constexpr bool is_value<Keyword<L, T>> = is_value<T>;

template <Literal L, typename T>
Keyword<L, T> kw(T&& value) {
    return {std::forward<T>(value)};
}

namespace detail {

/// The name of an argument that is a keyword, null of others.
template <typename T>
inline constexpr const Name* keyword_name = nullptr;
template <Literal L, typename T>
inline constexpr const Name* keyword_name<Keyword<L, T>> = &string_name<L>;

template <typename... Arguments>
inline constexpr std::size_t keyword_count = (std::size_t{0} + ... + (keyword_name<Arguments> != nullptr ? 1U : 0U));

/// The argument as an object that lives as long as the call.
template <typename T>
decltype(auto) as_argument(const T& argument) {
    if constexpr (keyword_name<T> != nullptr)
        return to_object(argument.value);
    else
        return to_object(argument);
}

/// The arguments of a vector call: room for the callee's use and for `self`, positional arguments, then keywords.
struct Arguments {
    PyObject** slots;
    std::size_t positional;
    PyObject* keywords;  // a tuple of names, or null
};

/// The tuple of `count` names, of those that are not null.
Object keyword_names(std::initializer_list<const Name*> names, Py_ssize_t count);
Object call(const Object& callee, Arguments arguments);
Object call_method(const Object& self, const Name& name, Arguments arguments);

/// Calls `body` with the arguments as the interpreter wants them.
template <typename Body, typename... Given>
Object with_arguments(Body body, const Given&... given) {
    return [&](const auto&... objects) {
        PyObject* slots[] = {nullptr, nullptr, objects.ptr()...};
        constexpr std::size_t keywords = keyword_count<Given...>;
        if constexpr (keywords == 0) {
            return body(Arguments{slots, sizeof...(Given), nullptr});
        } else {
            const Object names = keyword_names({keyword_name<Given>...}, keywords);
            return body(Arguments{slots, sizeof...(Given) - keywords, names.ptr()});
        }
    }(as_argument(given)...);
}

}  // namespace detail

/// `callee(argument, …, name=value)`, evaluated in that order: `invoke{m.get<"sorted">(), f(x), kw<"key">(g(x))}`.
struct invoke : Object {
    template <typename... Arguments>
    explicit invoke(const Object& callee, const Arguments&... arguments)
        : Object(detail::with_arguments([&](detail::Arguments given) { return detail::call(callee, given); },
                                        arguments...)) {}
    /// Calls a class of the interpreter.
    template <typename... Arguments>
    explicit invoke(PyObject* builtin, const Arguments&... arguments) : invoke(Object::borrow(builtin), arguments...) {}
    // Without arguments, `invoke{callee}` would be a copy where the callee is itself the result of a call.
    invoke(const invoke&) = delete;
};

template <Literal L, Value... Arguments>
Object Object::call(Arguments&&... arguments) const {
    if constexpr (is_dotted<L>)
        return attr<parent<L>>().template call<last_name<L>>(arguments...);
    else
        return detail::with_arguments(
            [&](detail::Arguments given) { return detail::call_method(*this, string_name<L>, given); }, arguments...);
}

}  // namespace py
