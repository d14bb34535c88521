/// \file Integers as bytes.
#include "python/bytes.hpp"

#include <climits>

namespace py {

namespace {

/// Nothing where the general method has to answer, or to refuse.
std::optional<unsigned long long> plain_value(const Object& integer) {
    if (!PyLong_CheckExact(integer.ptr())) return std::nullopt;
    int overflow = 0;
    const long long value = PyLong_AsLongLongAndOverflow(integer.ptr(), &overflow);
    if (overflow != 0 || value < 0) return std::nullopt;
    return static_cast<unsigned long long>(value);
}

char* write_big_endian(unsigned long long value, char* end) {
    for (unsigned bits = 64; bits > 0; bits -= CHAR_BIT) *end++ = static_cast<char>(value >> (bits - CHAR_BIT));
    return end;
}

}  // namespace

Object eight_bytes_each(const Object& x, const Object& y) {
    const auto first = plain_value(x);
    const auto second = plain_value(y);
    if (!first.has_value() || !second.has_value()) {
        const Object first_bytes = x.call<"to_bytes">(8, "big"_s);
        return first_bytes + y.call<"to_bytes">(8, "big"_s);
    }
    char bytes[16];
    write_big_endian(*second, write_big_endian(*first, bytes));
    return Object::steal(PyBytes_FromStringAndSize(bytes, sizeof bytes));
}

}  // namespace py
