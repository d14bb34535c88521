/// \file Integers as bytes.
#include "python/bytes.hpp"

#include <climits>

namespace py {

namespace {

/// Negative where only the general method can tell.
long long plain_value(const Object& integer) {
    if (!PyLong_CheckExact(integer.ptr())) return -1;
    int overflow = 0;
    const long long value = PyLong_AsLongLongAndOverflow(integer.ptr(), &overflow);
    return overflow == 0 ? value : -1;
}

char* write_big_endian(long long value, char* end) {
    for (int bit = 56; bit >= 0; bit -= CHAR_BIT) *end++ = static_cast<char>(value >> bit);
    return end;
}

}  // namespace

Object eight_bytes_each(const Object& x, const Object& y) {
    const long long first = plain_value(x);
    const long long second = plain_value(y);
    if (first < 0 || second < 0) {
        const Object first_bytes = x.call<"to_bytes">(8, "big"_s);
        return first_bytes + y.call<"to_bytes">(8, "big"_s);
    }
    char bytes[16];
    write_big_endian(second, write_big_endian(first, bytes));
    return Object::steal(PyBytes_FromStringAndSize(bytes, sizeof bytes));
}

}  // namespace py
