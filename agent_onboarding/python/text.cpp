/// \file String operations with a short way for real strings.
#include "python/text.hpp"

#include "python/iterate.hpp"

namespace py {

namespace {

bool is_space_at(PyObject* string, Py_ssize_t index) noexcept {
    return Py_UNICODE_ISSPACE(PyUnicode_READ_CHAR(string, index)) != 0;
}

}  // namespace

bool detail::contains_any(PyObject* string, std::string_view characters) noexcept {
    const Py_ssize_t size = PyUnicode_GET_LENGTH(string);
    for (Py_ssize_t i = 0; i < size; ++i) {
        const Py_UCS4 character = PyUnicode_READ_CHAR(string, i);
        for (const char one : characters)
            if (static_cast<unsigned char>(one) == character) return true;
    }
    return false;
}

Object detail::interleaved(const std::string_view* fragments, const Object* strings, std::size_t count) {
    std::size_t size = fragments[count].size();
    Py_UCS4 highest = 0;
    for (std::size_t i = 0; i < count; ++i) {
        size += fragments[i].size() + static_cast<std::size_t>(PyUnicode_GET_LENGTH(strings[i].ptr()));
        highest = std::max(highest, PyUnicode_MAX_CHAR_VALUE(strings[i].ptr()));
    }
    Object result = Object::steal(PyUnicode_New(static_cast<Py_ssize_t>(size), highest));
    if (highest < 0x80) {
        AsciiWriter writer{result};
        writer.write(fragments[0]);
        for (std::size_t i = 0; i < count; ++i) {
            writer.write(strings[i].ptr());
            writer.write(fragments[i + 1]);
        }
        return result;
    }
    Py_ssize_t end = 0;
    const auto write = [&](std::string_view fragment) {
        for (const char character : fragment)
            check(PyUnicode_WriteChar(result.ptr(), end++, static_cast<Py_UCS4>(character)));
    };
    write(fragments[0]);
    for (std::size_t i = 0; i < count; ++i) {
        const Object& string = strings[i];
        end += check(PyUnicode_CopyCharacters(result.ptr(), end, string.ptr(), 0, PyUnicode_GET_LENGTH(string.ptr())));
        write(fragments[i + 1]);
    }
    return result;
}

Object strip(const Object& object) {
    PyObject* string = object.ptr();
    if (!PyUnicode_CheckExact(string)) return object.call<"strip">();
    Py_ssize_t begin = 0;
    const Py_ssize_t size = PyUnicode_GET_LENGTH(string);
    Py_ssize_t end = size;
    while (begin < end && is_space_at(string, begin)) ++begin;
    while (begin < end && is_space_at(string, end - 1)) --end;
    if (end - begin == size) return object;
    return Object::steal(PyUnicode_Substring(string, begin, end));
}

std::optional<std::array<Object, 2>> split_last(const Object& object, const Object& separator) {
    if (!are_strings(object, separator)) {
        auto [before, found, behind] = unpack<3>(object.call<"rpartition">(separator));
        if (!truth(before)) return std::nullopt;
        return std::array{std::move(before), std::move(behind)};
    }
    PyObject* string = object.ptr();
    const Py_ssize_t size = PyUnicode_GET_LENGTH(string);
    const Py_ssize_t at = PyUnicode_Find(string, separator.ptr(), 0, size, -1);
    if (at < -1) throw_pending();
    if (at <= 0) return std::nullopt;
    Object before = Object::steal(PyUnicode_Substring(string, 0, at));
    const Py_ssize_t behind = at + PyUnicode_GET_LENGTH(separator.ptr());
    return std::array{std::move(before), Object::steal(PyUnicode_Substring(string, behind, size))};
}

bool starts_with(const Object& object, const Object& prefix, const Object& end) {
    if (!are_strings(object, prefix) || !end.is_plain_str()) return truth(object.get<"startswith">()(prefix + end));
    return detail::stands_at(object.ptr(), prefix.ptr(), 0) &&
           detail::stands_at(object.ptr(), end.ptr(), PyUnicode_GET_LENGTH(prefix.ptr()));
}

bool ends_with(const Object& object, const Object& suffix) {
    if (are_strings(object, suffix)) {
        const Py_ssize_t offset = PyUnicode_GET_LENGTH(object.ptr()) - PyUnicode_GET_LENGTH(suffix.ptr());
        return detail::stands_at(object.ptr(), suffix.ptr(), offset);
    }
    return truth(object.call<"endswith">(suffix));
}

}  // namespace py
