/// \file Unpacking with the errors of an assignment statement, and what containers do with their own methods.
#include "python/iterate.hpp"

#include "python/call.hpp"

namespace py {

void discard(const Object& mapping, const Object& key) {
    if (PyDict_CheckExact(mapping.ptr()))
        check(compat::discard_item(mapping.ptr(), key.ptr()));
    else
        mapping.call<"pop">(key, none());
}

Object detail::exactly(const Object& iterable, Py_ssize_t count) {
    if (Py_TYPE(iterable.ptr())->tp_iter == nullptr && PySequence_Check(iterable.ptr()) == 0) {
        PyErr_Format(PyExc_TypeError, "cannot unpack non-iterable %.200s object", Py_TYPE(iterable.ptr())->tp_name);
        throw_pending();
    }
    Object items = list();
    for (const Object& item : iterate(iterable)) {
        if (size(items) == count) {
            PyErr_Format(PyExc_ValueError, "too many values to unpack (expected %zd)", count);
            throw_pending();
        }
        append(items, item);
    }
    if (size(items) < count) {
        PyErr_Format(PyExc_ValueError, "not enough values to unpack (expected %zd, got %zd)", count, size(items));
        throw_pending();
    }
    return items;
}

}  // namespace py
