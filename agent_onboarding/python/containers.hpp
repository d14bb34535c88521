/// \file The containers that algorithms build, and what they do with those they are given.
#pragma once

#include "python/call.hpp"
#include "python/iterate.hpp"

namespace py {

/// `{}`, `[a, b]`, `(a, b)`, `{a, b}` as a set; the items are evaluated from left to right.
struct dict : Object {
    dict() : Object(Object::steal(PyDict_New())) {}
};

struct list : Object {
    template <typename... Items>
    explicit list(const Items&... items) : Object(Object::steal(PyList_New(sizeof...(items)))) {
        [[maybe_unused]] Py_ssize_t i = 0;  // NOLINT(misc-const-correctness): only an empty list leaves it as it is
        (PyList_SET_ITEM(ptr(), i++, Object{to_object(items)}.release()), ...);
    }
    list(const list&) = delete;  // `list{x}` is never a copy of x
};

struct tuple : Object {
    template <typename... Items>
    explicit tuple(const Items&... items)
        : Object(Object::steal(PyTuple_Pack(sizeof...(items), to_object(items).ptr()...))) {}
    tuple(const tuple&) = delete;  // `tuple{x}` is never a copy of x
};

inline void add(const Object& set, const Object& item) { check(PySet_Add(set.ptr(), item.ptr())); }

struct set : Object {
    template <typename... Items>
    explicit set(const Items&... items) : Object(Object::steal(PySet_New(nullptr))) {
        (add(*this, items), ...);
    }
};

/// `t[I]` of a tuple of our own.
template <Py_ssize_t I>
Object element(const Object& tuple) {
    return Object::borrow(PyTuple_GET_ITEM(tuple.ptr(), I));
}

inline Py_ssize_t size(const Object& container) { return check(PyObject_Size(container.ptr())); }

/// `list(iterable)`, `dict(mapping)`
inline Object list_of(const Object& iterable) { return Object::steal(PySequence_List(iterable.ptr())); }
inline Object dict_of(const Object& mapping) {
    return mapping.is_exact_dict() ? Object::steal(PyDict_Copy(mapping.ptr())) : invoke{type(PyDict_Type), mapping};
}

/// `sequence[:count]`
inline Object slice_to(const Object& sequence, Py_ssize_t count) {
    const Object slice = Object::steal(PySlice_New(nullptr, to_object(count).ptr(), nullptr));
    return sequence.item(slice);
}

/// `list.append(item)`
inline void append(const Object& list, const Object& item) {
    if (list.is_exact_list())
        check(PyList_Append(list.ptr(), item.ptr()));
    else
        list.call<"append">(item);
}

/// `mapping.items()`. An exact dict lists them: CPython 3.12 crashes where there is no memory for an iterator over them.
inline Object items_of(const Object& mapping) {
    if (mapping.is_exact_dict()) return Object::steal(PyDict_Items(mapping.ptr()));
    return mapping.call<"items">();
}

/// `mapping.pop(key, None)` for its effect.
void discard(const Object& mapping, const Object& key);

/// `sorted(iterable)`
Object sorted(const Object& iterable);

enum class Order { ascending, descending };

/// `sorted(items, key=key, reverse=…)`: items with equal keys stay as they stood.
template <typename Key>
Object sorted_by(const Object& items, Order order, Key key) {
    const Object decorated = list{};
    Py_ssize_t position = 0;
    for (const Object& item : iterate(items)) {
        append(decorated, tuple{key(item), order == Order::ascending ? position : -position, item});
        ++position;
    }
    const Object in_order = sorted(decorated);
    if (order == Order::descending) check(PyList_Reverse(in_order.ptr()));
    Object result = list{};
    for (const Object& entry : iterate(in_order)) append(result, element<2>(entry));
    return result;
}

namespace detail {
/// The items of the iterable as a list, which are `count` and no more.
Object unpacked_list(const Object& iterable, Py_ssize_t count);
}  // namespace detail

/// `a, b = iterable`
template <std::size_t N>
std::array<Object, N> unpack(const Object& iterable) {
    const Object items = detail::unpacked_list(iterable, Py_ssize_t{N});
    return [&]<std::size_t... I>(std::index_sequence<I...>) {
        return std::array<Object, N>{Object::borrow(PySequence_Fast_GET_ITEM(items.ptr(), I))...};
    }(std::make_index_sequence<N>{});
}

}  // namespace py
