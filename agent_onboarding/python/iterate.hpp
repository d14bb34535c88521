/// \file Range-for over a Python iterable.
#pragma once

#include <array>
#include <iterator>

#include "python/object.hpp"

namespace py {

/// `iter(x)`, `next(iterator)`; nothing at its end.
inline Object iterator(const Object& iterable) { return Object::steal(PyObject_GetIter(iterable.ptr())); }
inline std::optional<Object> next(const Object& iterator) {
    PyObject* item = PyIter_Next(iterator.ptr());
    if (item != nullptr) return Object::steal(item);
    if (PyErr_Occurred() != nullptr) throw_pending();
    return std::nullopt;
}

/// `for (const Object& item : iterate(iterable))`
class iterate {
public:
    explicit iterate(const Object& iterable)
        : is_indexed_(iterable.is_exact_list() || PyTuple_CheckExact(iterable.ptr())),
          source_(is_indexed_ ? iterable : iterator(iterable)),
          item_(next_item()) {}

    struct Position {
        iterate& range;
        void operator++() { range.item_ = range.next_item(); }
        // NOLINTNEXTLINE(bugprone-unchecked-optional-access): the loop has compared with the end
        const Object& operator*() const { return *range.item_; }
        bool operator==(std::default_sentinel_t) const noexcept { return !range.item_.has_value(); }
    };
    [[nodiscard]] Position begin() { return {*this}; }
    [[nodiscard]] static std::default_sentinel_t end() noexcept { return {}; }

private:
    std::optional<Object> next_item() {
        if (!is_indexed_) return next(source_);
        if (index_ >= PySequence_Fast_GET_SIZE(source_.ptr())) return std::nullopt;
        return Object::borrow(PySequence_Fast_GET_ITEM(source_.ptr(), index_++));
    }

    /// Exactly a list or a tuple: read by index, as its own iterator would, which sees items that are appended meanwhile.
    bool is_indexed_;
    Object source_;
    Py_ssize_t index_ = 0;
    std::optional<Object> item_;
};

/// The items of a dict that nobody else can change meanwhile.
template <typename Body>
void for_each_item(const Object& dict, Body body) {
    PyObject *key = nullptr, *value = nullptr;
    for (Py_ssize_t position = 0; PyDict_Next(dict.ptr(), &position, &key, &value) != 0;)
        body(Object::borrow(key), Object::borrow(value));
}

}  // namespace py
