/// \file Range-for over a Python iterable, and the containers that algorithms build.
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
    explicit iterate(const Object& iterable) : source_(is_plain(iterable) ? iterable : iterator(iterable)) {}

    class Position {
    public:
        explicit Position(const Object& source) : source_(source), item_(next_item()) {}
        Position& operator++() {
            item_ = next_item();
            return *this;
        }
        // NOLINTNEXTLINE(bugprone-unchecked-optional-access): the loop has compared with the end
        const Object& operator*() const { return *item_; }
        bool operator==(std::default_sentinel_t) const noexcept { return !item_.has_value(); }

    private:
        std::optional<Object> next_item() {
            PyObject* source = source_.ptr();
            if (!is_plain(source_)) return next(source_);
            if (index_ >= PySequence_Fast_GET_SIZE(source)) return std::nullopt;
            return Object::borrow(PySequence_Fast_GET_ITEM(source, index_++));
        }

        const Object& source_;
        Py_ssize_t index_ = 0;
        std::optional<Object> item_;
    };

    [[nodiscard]] Position begin() const { return Position{source_}; }
    [[nodiscard]] static std::default_sentinel_t end() noexcept { return {}; }

private:
    /// A list or tuple whose iterator would only count, seeing what the list holds at each step.
    static bool is_plain(const Object& iterable) noexcept {
        return PyList_CheckExact(iterable.ptr()) || PyTuple_CheckExact(iterable.ptr());
    }

    Object source_;
};

/// `{}`, `[]`, `[a, b]`, `(a, b)`
inline Object dict() { return Object::steal(PyDict_New()); }

template <std::same_as<Object>... Items>
Object list(const Items&... items) {
    Object result = Object::steal(PyList_New(sizeof...(items)));
    [[maybe_unused]] Py_ssize_t i = 0;  // NOLINT(misc-const-correctness): only an empty list leaves it as it is
    (PyList_SET_ITEM(result.ptr(), i++, Py_NewRef(items.ptr())), ...);
    return result;
}

template <std::same_as<Object>... Items>
Object tuple(const Items&... items) {
    Object result = Object::steal(PyTuple_New(sizeof...(items)));
    [[maybe_unused]] Py_ssize_t i = 0;  // NOLINT(misc-const-correctness): only an empty tuple leaves it as it is
    (PyTuple_SET_ITEM(result.ptr(), i++, Py_NewRef(items.ptr())), ...);
    return result;
}

/// The items of a dict that nobody else can change meanwhile.
template <typename Body>
void for_each_item(const Object& dict, Body body) {
    PyObject *key = nullptr, *value = nullptr;
    for (Py_ssize_t position = 0; PyDict_Next(dict.ptr(), &position, &key, &value) != 0;)
        body(Object::borrow(key), Object::borrow(value));
}

/// `x.append(item)`. The methods of `list` itself cannot be rebound, so a real `list` is asked directly.
inline void append(const Object& list, const Object& item) {
    if (PyList_CheckExact(list.ptr()))
        check(PyList_Append(list.ptr(), item.ptr()));
    else
        list.call<"append">(item);
}

/// Whether a list of our own holds this very object.
inline bool contains_itself(const Object& list, const Object& item) {
    for (const Object& one : iterate(list))
        if (one.is(item)) return true;
    return false;
}

/// A set of the items, `set()`.
template <std::same_as<Object>... Items>
Object set(const Items&... items) {
    Object result = Object::steal(PySet_New(nullptr));
    (check(PySet_Add(result.ptr(), items.ptr())), ...);
    return result;
}
inline void add(const Object& set, const Object& item) { check(PySet_Add(set.ptr(), item.ptr())); }

/// `sequence[:count]`
inline Object first(const Object& sequence, Py_ssize_t count) {
    const Object slice = Object::steal(PySlice_New(nullptr, to_object(count).ptr(), nullptr));
    return sequence.item(slice);
}

inline Py_ssize_t size(const Object& container) { return check(PyObject_Size(container.ptr())); }

/// `dict(mapping)`
inline Object dict_of(const Object& mapping) {
    if (PyDict_CheckExact(mapping.ptr())) return Object::steal(PyDict_Copy(mapping.ptr()));
    return type(PyDict_Type)(mapping);
}

/// `mapping.items()`. A real dict lists them: CPython 3.12 crashes where there is no memory for an iterator over them.
inline Object items_of(const Object& mapping) {
    if (PyDict_CheckExact(mapping.ptr())) return Object::steal(PyDict_Items(mapping.ptr()));
    return mapping.call<"items">();
}

/// `mapping.pop(key, None)` for its effect.
void discard(const Object& mapping, const Object& key);

/// `list(iterable)`, `sorted(iterable)`, `sorted(iterable, key=…)`
inline Object list_of(const Object& iterable) { return Object::steal(PySequence_List(iterable.ptr())); }

inline Object sorted(const Object& iterable) {
    Object result = list_of(iterable);
    check(PyList_Sort(result.ptr()));
    return result;
}

/// `t[I]` of a tuple of our own.
template <Py_ssize_t I>
Object element(const Object& tuple) {
    return Object::borrow(PyTuple_GET_ITEM(tuple.ptr(), I));
}

enum class Order { ascending, descending };

/// The items in the order of `key(item)`, those with equal keys as they stood; the items themselves are not compared.
template <typename Key>
Object sorted_by(const Object& items, Order order, Key key) {
    const Object decorated = list();
    Py_ssize_t place = 0;
    for (const Object& item : iterate(items)) {
        const Object tie_break = to_object(order == Order::ascending ? place : -place);
        append(decorated, tuple(key(item), tie_break, item));
        ++place;
    }
    check(PyList_Sort(decorated.ptr()));
    if (order == Order::descending) check(PyList_Reverse(decorated.ptr()));
    Object result = list();
    for (const Object& entry : iterate(decorated)) append(result, element<2>(entry));
    return result;
}

namespace detail {
/// The items of the iterable as a list, which are `count` and no more.
Object exactly(const Object& iterable, Py_ssize_t count);
}  // namespace detail

/// `a, b = iterable`
template <std::size_t N>
std::array<Object, N> unpack(const Object& iterable) {
    if (PyTuple_CheckExact(iterable.ptr()) && PyTuple_GET_SIZE(iterable.ptr()) == Py_ssize_t{N})
        return [&]<std::size_t... I>(std::index_sequence<I...>) {
            return std::array<Object, N>{element<I>(iterable)...};
        }(std::make_index_sequence<N>{});
    const Object items = detail::exactly(iterable, Py_ssize_t{N});
    return [&]<std::size_t... I>(std::index_sequence<I...>) {
        return std::array<Object, N>{Object::borrow(PyList_GET_ITEM(items.ptr(), I))...};
    }(std::make_index_sequence<N>{});
}

}  // namespace py
