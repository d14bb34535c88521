/// \file Lazy iterators: nothing runs before the first `next`, and after the end or an exception they are exhausted.
#pragma once

#include "python/function.hpp"

namespace py {

namespace detail {

/// The frame of a suspended generator: the marker of its end, where it stands, and what it holds there.
enum class Frame : Py_ssize_t { end_marker, is_started, held, size };

inline Object held_in(const Object& frame, Frame place) {
    return Object::borrow(PyList_GET_ITEM(frame.ptr(), static_cast<Py_ssize_t>(place)));
}
inline void hold(const Object& frame, Frame place, Object value) {
    check(PyList_SetItem(frame.ptr(), static_cast<Py_ssize_t>(place), value.release()));
}

template <auto Begin, auto Next>
Object resume(Module m, const Object& frame) {
    const Object is_started = held_in(frame, Frame::is_started);
    Object held = held_in(frame, Frame::held);
    hold(frame, Frame::is_started, none());  // exhausted, unless this step comes to its end
    hold(frame, Frame::held, none());
    if (is_started.is_none()) return held_in(frame, Frame::end_marker);

    const Object iterator = truth(is_started) ? held : Begin(m, held);
    std::optional<Object> item = Next(m, iterator);
    if (!item.has_value()) return held_in(frame, Frame::end_marker);
    hold(frame, Frame::is_started, to_object(true));
    hold(frame, Frame::held, iterator);
    return *std::move(item);
}

}  // namespace detail

/// An iterator over what `Next(m, iterator)` returns until it returns nothing, where `iterator` is the result of
/// `Begin(m, argument)`, called by the first `next`.
template <auto Begin, auto Next>
Object generator(Module m, const Object& argument) {
    static PyMethodDef step = def_closure<"resume()", detail::resume<Begin, Next>>();
    const Object end_marker = call(reinterpret_cast<PyObject*>(&PyBaseObject_Type));
    const Object frame = list(end_marker, to_object(false), argument);
    return Object::steal(PyCallIter_New(closure(m, step, frame).ptr(), end_marker.ptr()));
}

}  // namespace py
