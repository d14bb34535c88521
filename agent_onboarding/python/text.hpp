/// \file Texts: f-strings and the string operations that algorithms name.
#pragma once

#include <span>

#include "python/containers.hpp"

namespace py {

/// `str(x)`, `repr(x)`, `format(x)`
inline Object str(const Object& object) {
    return object.is_exact_str() ? object : Object::steal(PyObject_Str(object.ptr()));
}
inline Object repr(const Object& object) { return Object::steal(PyObject_Repr(object.ptr())); }
inline Object format(const Object& object) {
    return object.is_exact_str() ? object : Object::steal(PyObject_Format(object.ptr(), nullptr));
}

/// `type(x).__name__`. What `type` itself answers cannot be rebound, so an ordinary class is asked directly.
inline Object type_name(const Object& object) {
    PyTypeObject* type = Py_TYPE(object.ptr());
    return Py_IS_TYPE(type, &PyType_Type) ? Object::steal(PyType_GetName(type)) : type_of(object).attr<"__name__">();
}

namespace detail {

/// Where the I-th "{}" of a template stands, or its end.
template <Literal L, std::size_t I>
inline constexpr std::size_t placeholder_offset = [] {
    std::size_t at = L.view().find("{}");
    for (std::size_t i = 0; i < I && at != std::string_view::npos; ++i) at = L.view().find("{}", at + 2);
    return std::min(at, L.view().size());
}();

/// The text before the I-th "{}" and behind the one before it.
template <Literal L, std::size_t I>
consteval auto fragment() {
    constexpr std::size_t begin = I == 0 ? 0 : placeholder_offset<L, I - 1> + 2;
    return part<L, begin, placeholder_offset<L, I>>;
}

Object join_fragments(std::span<PyObject* const> texts);

}  // namespace detail

/// The template with each "{}" replaced by `format(argument)`; the arguments are evaluated from left to right.
template <Literal L>
struct fstring : Object {
    template <typename... Arguments>
    explicit fstring(const Arguments&... arguments)
        : Object(formatted(std::make_index_sequence<sizeof...(Arguments)>{}, {format(arguments)...})) {}

private:
    template <std::size_t N, std::size_t... I>
    static Object formatted(std::index_sequence<I...>, const Object (&texts)[N]) {
        PyObject* fragments[2 * N + 1];
        ((fragments[2 * I] = string_name<detail::fragment<L, I>()>.get().ptr(), fragments[2 * I + 1] = texts[I].ptr()),
         ...);
        fragments[2 * N] = string_name<detail::fragment<L, N>()>.get().ptr();
        return detail::join_fragments(fragments);
    }
};

/// A `bytes` object, and a string of UTF-8.
inline Object bytes(std::string_view content) {
    return Object::steal(PyBytes_FromStringAndSize(content.data(), static_cast<Py_ssize_t>(content.size())));
}
inline Object from_utf8(const char* text) { return Object::steal(PyUnicode_FromString(text)); }

/// `"a" in text or "b" in text or …`
template <Literal Characters>
bool contains_any(const Object& text) {
    return [&]<std::size_t... I>(std::index_sequence<I...>) {
        if (!text.is_exact_str()) return (contains(text, string_name<part<Characters, I, I + 1>>.get()) || ...);
        for (Py_ssize_t i = 0; i < PyUnicode_GET_LENGTH(text.ptr()); ++i) {
            const Py_UCS4 character = PyUnicode_READ_CHAR(text.ptr(), i);
            if (((character == static_cast<unsigned char>(Characters.text[I])) || ...)) return true;
        }
        return false;
    }(std::make_index_sequence<Characters.view().size()>{});
}

/// `separator.join(strings)`
inline Object join(const Object& separator, const Object& strings) {
    return Object::steal(PyUnicode_Join(separator.ptr(), strings.ptr()));
}

/// `x.strip()`, `x.startswith(prefix)`, `x.endswith(suffix)`
Object strip(const Object& object);
bool starts_with(const Object& object, const Object& prefix);
bool ends_with(const Object& object, const Object& suffix);

}  // namespace py
