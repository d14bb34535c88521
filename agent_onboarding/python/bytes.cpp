/// \file Integers as bytes.
#include "python/bytes.hpp"

#include <climits>

namespace py {

Object eight_bytes(const Object& integer) {
    int overflow = 0;
    const long long value = PyLong_CheckExact(integer.ptr()) ? PyLong_AsLongLongAndOverflow(integer.ptr(), &overflow) : -1;
    if (value < 0 || overflow != 0) return integer.call<"to_bytes">(8, "big"_s);

    char bytes[8];
    for (int i = 0; i < 8; ++i) bytes[i] = static_cast<char>(value >> (CHAR_BIT * (7 - i)));
    return Object::steal(PyBytes_FromStringAndSize(bytes, sizeof bytes));
}

}  // namespace py
