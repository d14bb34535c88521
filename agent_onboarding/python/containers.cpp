/// \file Unpacking with the errors of an assignment statement, and what containers do with their own methods.
#include "python/containers.hpp"

namespace py {

void discard(const Object& mapping, const Object& key) {
    if (!mapping.is_exact_dict())
        mapping.call<"pop">(key, none);
    else if (contains(mapping, key))
        mapping.del_item(key);
}

Object sorted(const Object& iterable) {
    Object result = list_of(iterable);
    check(PyList_Sort(result.ptr()));
    return result;
}

Object detail::unpacked_list(const Object& iterable, Py_ssize_t count) {
    if (PyTuple_CheckExact(iterable.ptr()) && size(iterable) == count) return iterable;
    if (Py_TYPE(iterable.ptr())->tp_iter == nullptr && PySequence_Check(iterable.ptr()) == 0) {
        PyErr_Format(PyExc_TypeError, "cannot unpack non-iterable %.200s object", Py_TYPE(iterable.ptr())->tp_name);
        throw_pending();
    }
    Object items = list{};
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
