/// \file Texts: formatted messages and the string operations that algorithms name.
#pragma once

#include <array>

#include "python/error.hpp"

namespace py {

/// `str(x)`, `repr(x)`, `format(x)`
inline Object str(const Object& object) {
    return object.is_plain_str() ? object : Object::steal(PyObject_Str(object.ptr()));
}
inline Object repr(const Object& object) { return Object::steal(PyObject_Repr(object.ptr())); }
inline Object format(const Object& object) {
    return object.is_plain_str() ? object : Object::steal(PyObject_Format(object.ptr(), nullptr));
}

/// `type(x).__name__`. What `type` itself answers cannot be rebound, so an ordinary class is asked directly.
inline Object type_name(const Object& object) {
    PyTypeObject* type = Py_TYPE(object.ptr());
    return Py_IS_TYPE(type, &PyType_Type) ? Object::steal(PyType_GetName(type)) : type_of(object).get<"__name__">();
}

/// Fills a new string, whose characters are all ASCII, from its begin on.
class AsciiWriter {
public:
    explicit AsciiWriter(const Object& string) noexcept : end_(characters(string.ptr())) {}

    // Between pointers to the same type, all of a text is copied at once.
    void write(std::string_view text) noexcept { end_ = std::copy_n(text.data(), text.size(), end_); }
    void write(PyObject* string) noexcept {
        end_ = std::copy_n(characters(string), PyUnicode_GET_LENGTH(string), end_);
    }

private:
    static char* characters(PyObject* string) noexcept { return static_cast<char*>(PyUnicode_DATA(string)); }

    char* end_;
};

namespace detail {

/// Where the I-th "{}" stands in a template, or its end.
template <Literal L, std::size_t I>
inline constexpr std::size_t field = [] {
    std::size_t at = L.view().find("{}");
    for (std::size_t i = 0; i < I && at != std::string_view::npos; ++i) at = L.view().find("{}", at + 2);
    return std::min(at, L.view().size());
}();

/// The text between the "{}" before the I-th and the I-th, of a template in ASCII.
template <Literal L, std::size_t I>
consteval std::string_view fragment() {
    const std::size_t begin = I == 0 ? 0 : field<L, I - 1> + 2;
    const std::string_view text = L.view().substr(begin, field<L, I> - begin);
    if (std::ranges::any_of(text, [](char character) { return character < 0; })) throw "only ASCII";
    return text;
}
template <Literal L, std::size_t... I>
inline constexpr std::string_view fragments[sizeof...(I)] = {fragment<L, I>()...};

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

/// The strings with a fragment before each and one behind the last.
Object interleaved(const std::string_view* fragments, const Object* strings, std::size_t count);

}  // namespace detail

/// The text with each "{}" replaced by `format(argument)`, as an f-string does.
template <Literal L, std::same_as<Object>... Arguments>
Object text(const Arguments&... arguments) {
    const Object strings[] = {format(arguments)...};
    return [&]<std::size_t... I>(std::index_sequence<I...>) {
        return detail::interleaved(detail::fragments<L, I...>, strings, sizeof...(Arguments));
    }(std::make_index_sequence<sizeof...(Arguments) + 1>{});
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
/// `before, _, behind = x.rpartition(separator)`, nothing where `before` is falsy.
std::optional<std::array<Object, 2>> split_last(const Object& object, const Object& separator);

/// `x.startswith(prefix + end)`
bool starts_with(const Object& object, const Object& prefix, const Object& end);

inline bool starts_with(const Object& object, const Object& prefix) {
    if (are_strings(object, prefix)) return detail::stands_at(object.ptr(), prefix.ptr(), 0);
    return truth(object.call<"startswith">(prefix));
}

}  // namespace py
