/// \file Range-for over a Python iterable, and the containers that algorithms build.
#pragma once

#include <initializer_list>
#include <iterator>

#include "python/object.hpp"

namespace py {

/// `for (Object item : iterate(iterable))`
class iterate {
public:
    explicit iterate(const Object& iterable) : iterator_(Object::steal(PyObject_GetIter(iterable.ptr()))) {}

    class Position {
    public:
        explicit Position(PyObject* iterator) : iterator_(iterator) { ++*this; }
        Position& operator++() {
            PyObject* item = PyIter_Next(iterator_);
            if (item != nullptr)
                item_ = Object::steal(item);
            else if (PyErr_Occurred() != nullptr)
                throw_pending();
            else
                item_.reset();
            return *this;
        }
        const Object& operator*() const { return *item_; }
        bool operator==(std::default_sentinel_t) const noexcept { return !item_.has_value(); }

    private:
        PyObject* iterator_;
        std::optional<Object> item_;
    };

    [[nodiscard]] Position begin() const { return Position{iterator_.ptr()}; }
    [[nodiscard]] static std::default_sentinel_t end() noexcept { return {}; }

private:
    Object iterator_;
};

/// `{}`, `[]`, `[a, b]`, `(a, b)`
inline Object dict() { return Object::steal(PyDict_New()); }

template <std::same_as<Object>... Items>
Object list(const Items&... items) {
    Object result = Object::steal(PyList_New(sizeof...(items)));
    [[maybe_unused]] Py_ssize_t i = 0;
    (PyList_SET_ITEM(result.ptr(), i++, Py_NewRef(items.ptr())), ...);
    return result;
}

template <std::same_as<Object>... Items>
Object tuple(const Items&... items) {
    return Object::steal(PyTuple_Pack(sizeof...(items), items.ptr()...));
}

/// The items of a dict that nobody else can change meanwhile.
template <typename Body>
void for_each_item(const Object& dict, Body body) {
    PyObject *key = nullptr, *value = nullptr;
    for (Py_ssize_t position = 0; PyDict_Next(dict.ptr(), &position, &key, &value) != 0;)
        body(Object::borrow(key), Object::borrow(value));
}

inline void append(const Object& list, const Object& item) { check(PyList_Append(list.ptr(), item.ptr())); }

inline Py_ssize_t size(const Object& container) { return check(PyObject_Size(container.ptr())); }

/// `list(iterable)`, `sorted(iterable)`, `sorted(iterable, key=…)`
inline Object list_of(const Object& iterable) { return Object::steal(PySequence_List(iterable.ptr())); }

inline Object sorted(const Object& iterable) {
    Object result = list_of(iterable);
    check(PyList_Sort(result.ptr()));
    return result;
}

}  // namespace py
