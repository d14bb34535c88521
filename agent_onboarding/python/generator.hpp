/// \file Lazy iterators: nothing runs before the first `next`, and after the end or an exception they are exhausted.
#pragma once

#include "python/function.hpp"

namespace py {

namespace detail {

/// The frame of a generator: the marker of its end, how far it is, and what it holds there. It is a list, which the
/// interpreter's garbage collector can follow.
enum class Frame : Py_ssize_t { end_marker, stage, held };
enum class Stage { created, running, exhausted };

inline Object in_frame(const Object& frame, Frame place) {
    return Object::borrow(PyList_GET_ITEM(frame.ptr(), static_cast<Py_ssize_t>(place)));
}
inline void enter_stage(const Object& frame, Stage stage, Object held) {
    check(PyList_SetItem(frame.ptr(), static_cast<Py_ssize_t>(Frame::stage),
                         to_object(static_cast<int>(stage)).release()));
    check(PyList_SetItem(frame.ptr(), static_cast<Py_ssize_t>(Frame::held), held.release()));
}
inline Stage stage_of(const Object& frame) {
    return static_cast<Stage>(PyLong_AsLong(in_frame(frame, Frame::stage).ptr()));
}

template <auto Begin, auto Next>
Object resume(Module m, const Object& frame) {
    const Stage stage = stage_of(frame);
    if (stage == Stage::exhausted) return in_frame(frame, Frame::end_marker);
    try {
        if (stage == Stage::created) enter_stage(frame, Stage::running, Begin(m, in_frame(frame, Frame::held)));
        if (std::optional<Object> item = Next(m, in_frame(frame, Frame::held))) return *std::move(item);
    } catch (const Error& error) {
        const Handling except{error};
        enter_stage(frame, Stage::exhausted, none());
        // Passed on as it is, it would look like the end.
        if (except.caught(PyExc_StopIteration))
            raise_from(call(PyExc_RuntimeError, "generator raised StopIteration"_s), except.value());
        throw;
    }
    enter_stage(frame, Stage::exhausted, none());
    return in_frame(frame, Frame::end_marker);
}

template <auto Begin, auto Next>
inline PyMethodDef resume_entry = def_closure<"resume()", resume<Begin, Next>>();

}  // namespace detail

/// An iterator over what `Next(m, iterator)` returns until it returns nothing, where `iterator` is the result of
/// `Begin(m, argument)`, called by the first `next`.
template <auto Begin, auto Next>
Object generator(Module m, const Object& argument) {
    const Object end_marker = type(PyBaseObject_Type)();
    const Object frame = list(end_marker, to_object(static_cast<int>(detail::Stage::created)), argument);
    const Object step = closure(m, detail::resume_entry<Begin, Next>, frame);
    return Object::steal(PyCallIter_New(step.ptr(), end_marker.ptr()));
}

}  // namespace py
