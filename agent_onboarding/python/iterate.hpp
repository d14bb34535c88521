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

class IterableRange {
public:
    explicit IterableRange(const Object& iterable) : source_(by_index(iterable) ? iterable : iterator(iterable)) {}

    class Iterator {
    public:
        explicit Iterator(const Object& source) : source_(source), item_(next_item()) {}
        Iterator& operator++() {
            item_ = next_item();
            return *this;
        }
        // NOLINTNEXTLINE(bugprone-unchecked-optional-access): the loop has compared with the end
        const Object& operator*() const { return *item_; }
        bool operator==(std::default_sentinel_t) const noexcept { return !item_.has_value(); }

    private:
        std::optional<Object> next_item() {
            if (!by_index(source_)) return next(source_);
            if (index_ >= PySequence_Fast_GET_SIZE(source_.ptr())) return std::nullopt;
            return Object::borrow(PySequence_Fast_GET_ITEM(source_.ptr(), index_++));
        }

        const Object& source_;
        Py_ssize_t index_ = 0;
        std::optional<Object> item_;
    };

    [[nodiscard]] Iterator begin() const { return Iterator{source_}; }
    [[nodiscard]] static std::default_sentinel_t end() noexcept { return {}; }

private:
    /// Exactly a list or a tuple: read by index, as its own iterator would, which sees items that are appended meanwhile.
    static bool by_index(const Object& iterable) noexcept {
        return iterable.is_exact_list() || PyTuple_CheckExact(iterable.ptr()) != 0;
    }

    Object source_;
};

/// `for (const Object& item : iterate(iterable))`
inline IterableRange iterate(const Object& iterable) { return IterableRange{iterable}; }

/// The items of a dict that nobody else can change meanwhile.
template <typename Body>
void for_each_item(const Object& dict, Body body) {
    PyObject *key = nullptr, *value = nullptr;
    for (Py_ssize_t position = 0; PyDict_Next(dict.ptr(), &position, &key, &value) != 0;)
        body(Object::borrow(key), Object::borrow(value));
}

}  // namespace py
