/// \file String operations, with a short way for exact strings.
#include "python/text.hpp"

#include <cstring>

namespace py {

namespace {

bool is_space_at(PyObject* string, Py_ssize_t index) noexcept {
    return Py_UNICODE_ISSPACE(PyUnicode_READ_CHAR(string, index)) != 0;
}

std::string_view stored_characters(PyObject* string) noexcept {
    const auto size = static_cast<std::size_t>(PyUnicode_GET_LENGTH(string)) * PyUnicode_KIND(string);
    return {static_cast<const char*>(PyUnicode_DATA(string)), size};
}

}  // namespace

bool detail::stands_at(Py_ssize_t index, const Object& string, const Object& part) noexcept {
    const Py_ssize_t length = PyUnicode_GET_LENGTH(part.ptr());
    if (index < 0 || index + length > PyUnicode_GET_LENGTH(string.ptr())) return false;
    if (PyUnicode_KIND(string.ptr()) != PyUnicode_KIND(part.ptr()))
        return PyUnicode_Tailmatch(string.ptr(), part.ptr(), index, index + length, -1) > 0;
    const std::string_view expected = stored_characters(part.ptr());
    const char* start = stored_characters(string.ptr()).data() + index * PyUnicode_KIND(part.ptr());
    return std::memcmp(start, expected.data(), expected.size()) == 0;
}

Object detail::join_fragments(std::span<PyObject* const> texts) {
    Py_ssize_t size = 0;
    Py_UCS4 highest = 0;
    for (PyObject* text : texts) {
        size += PyUnicode_GET_LENGTH(text);
        highest = std::max(highest, PyUnicode_MAX_CHAR_VALUE(text));
    }
    Object result = Object::steal(PyUnicode_New(size, highest));
    Py_ssize_t end = 0;
    for (PyObject* text : texts) {
        if (PyUnicode_KIND(text) == PyUnicode_KIND(result.ptr()))
            stored_characters(text).copy(static_cast<char*>(PyUnicode_DATA(result.ptr())) + end * PyUnicode_KIND(text),
                                         std::string_view::npos);
        else
            check(PyUnicode_CopyCharacters(result.ptr(), end, text, 0, PyUnicode_GET_LENGTH(text)));
        end += PyUnicode_GET_LENGTH(text);
    }
    return result;
}

Object strip(const Object& object) {
    if (!object.is_exact_str()) return object.call<"strip">();
    PyObject* string = object.ptr();
    Py_ssize_t begin = 0;
    Py_ssize_t end = PyUnicode_GET_LENGTH(string);
    while (begin < end && is_space_at(string, begin)) ++begin;
    while (begin < end && is_space_at(string, end - 1)) --end;
    return Object::steal(PyUnicode_Substring(string, begin, end));
}

bool starts_with(const Object& object, const Object& prefix) {
    if (object.is_exact_str() && prefix.is_exact_str()) return detail::stands_at(0, object, prefix);
    return truth(object.call<"startswith">(prefix));
}

bool ends_with(const Object& object, const Object& suffix) {
    if (object.is_exact_str() && suffix.is_exact_str())
        return detail::stands_at(size(object) - size(suffix), object, suffix);
    return truth(object.call<"endswith">(suffix));
}

}  // namespace py
