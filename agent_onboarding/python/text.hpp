/// \file Texts: formatted messages and the string operations that algorithms name.
#pragma once

#include "python/error.hpp"

namespace py {

/// `str(x)`, `repr(x)`, `format(x)`
inline Object str(const Object& object) { return Object::steal(PyObject_Str(object.ptr())); }
inline Object repr(const Object& object) { return Object::steal(PyObject_Repr(object.ptr())); }
inline Object format(const Object& object) { return Object::steal(PyObject_Format(object.ptr(), nullptr)); }

namespace detail {

/// Where the I-th "{}" stands in a template, or its end.
template <Literal L, std::size_t I>
inline constexpr std::size_t field = [] {
    std::size_t at = L.view().find("{}");
    for (std::size_t i = 0; i < I && at != std::string_view::npos; ++i) at = L.view().find("{}", at + 2);
    return std::min(at, L.view().size());
}();

/// The text behind the I-th "{}", up to the next.
template <Literal L, std::size_t I>
inline constexpr auto text_behind = part<L, field<L, I> + 2, field<L, I + 1>>;

/// Whether `part` stands in `string` at `offset`.
inline bool stands_at(PyObject* string, PyObject* part, Py_ssize_t offset) noexcept {
    const Py_ssize_t size = PyUnicode_GET_LENGTH(part);
    if (offset < 0 || offset + size > PyUnicode_GET_LENGTH(string)) return false;
    if (PyUnicode_IS_ASCII(string) && PyUnicode_IS_ASCII(part))
        return std::equal(PyUnicode_1BYTE_DATA(part), PyUnicode_1BYTE_DATA(part) + size,
                          PyUnicode_1BYTE_DATA(string) + offset);
    for (Py_ssize_t i = 0; i < size; ++i)
        if (PyUnicode_READ_CHAR(string, offset + i) != PyUnicode_READ_CHAR(part, i)) return false;
    return true;
}

/// Whether one of the characters, which are ASCII, stands in `string`.
bool contains_any(PyObject* string, std::string_view characters) noexcept;

/// The texts one after the other.
Object concatenated(PyObject* const* texts, std::size_t count);

}  // namespace detail

/// The text with each "{}" replaced by `format(argument)`, as an f-string does.
template <Literal L, std::same_as<Object>... Arguments>
Object text(const Arguments&... arguments) {
    const Object values[] = {format(arguments)...};
    return [&]<std::size_t... I>(std::index_sequence<I...>) {
        PyObject* texts[2 * sizeof...(I) + 1] = {string_name<part<L, 0, detail::field<L, 0>>>.ptr()};
        ((texts[2 * I + 1] = values[I].ptr(), texts[2 * I + 2] = string_name<detail::text_behind<L, I>>.ptr()), ...);
        return detail::concatenated(texts, std::size(texts));
    }(std::index_sequence_for<Arguments...>{});
}

inline Object from_utf8(const char* text) { return Object::steal(PyUnicode_FromString(text)); }

/// `"/" in text or …` for each of the characters.
template <Literal Characters>
bool contains_any(const Object& text) {
    if (text.is_plain_str()) return detail::contains_any(text.ptr(), Characters.view());
    return [&]<std::size_t... I>(std::index_sequence<I...>) {
        return (contains(text, string_name<part<Characters, I, I + 1>>.get()) || ...);
    }(std::make_index_sequence<Characters.view().size()>{});
}

/// `separator.join(strings)`
inline Object join(const Object& separator, const Object& strings) {
    return Object::steal(PyUnicode_Join(separator.ptr(), strings.ptr()));
}

/// `x.strip()`, `x.startswith(prefix)`, `x.endswith(suffix)`. The methods of `str` itself cannot be rebound, so a real
/// `str` is asked directly.
Object strip(const Object& object);
bool ends_with(const Object& object, const Object& suffix);
/// `x.rpartition(separator)`
Object rpartition(const Object& object, const Object& separator);

inline bool starts_with(const Object& object, const Object& prefix) {
    if (are_strings(object, prefix)) return detail::stands_at(object.ptr(), prefix.ptr(), 0);
    return truth(object.call<"startswith">(prefix));
}

}  // namespace py
