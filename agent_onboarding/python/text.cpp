/// \file String operations, with a short way for exact strings.
#include "python/text.hpp"

namespace py {

namespace {

bool is_space_at(PyObject* string, Py_ssize_t index) noexcept {
    return Py_UNICODE_ISSPACE(PyUnicode_READ_CHAR(string, index)) != 0;
}

enum class Side : signed char { begin = -1, end = 1 };

bool stands_at(Side side, const Object& string, const Object& part) {
    return check(PyUnicode_Tailmatch(string.ptr(), part.ptr(), 0, PY_SSIZE_T_MAX, static_cast<int>(side))) != 0;
}

}  // namespace

Object detail::join_fragments(std::span<PyObject* const> texts) {
    Py_ssize_t size = 0;
    Py_UCS4 highest = 0;
    for (PyObject* text : texts) {
        size += PyUnicode_GET_LENGTH(text);
        highest = std::max(highest, PyUnicode_MAX_CHAR_VALUE(text));
    }
    Object result = Object::steal(PyUnicode_New(size, highest));
    Py_ssize_t end = 0;
    for (PyObject* text : texts)
        end += check(PyUnicode_CopyCharacters(result.ptr(), end, text, 0, PyUnicode_GET_LENGTH(text)));
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
    if (object.is_exact_str() && prefix.is_exact_str()) return stands_at(Side::begin, object, prefix);
    return truth(object.call<"startswith">(prefix));
}

bool ends_with(const Object& object, const Object& suffix) {
    if (object.is_exact_str() && suffix.is_exact_str()) return stands_at(Side::end, object, suffix);
    return truth(object.call<"endswith">(suffix));
}

}  // namespace py
