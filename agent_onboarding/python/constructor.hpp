/// \file Calls of a class that only run its `__init__`.
#pragma once

#include "python/function.hpp"

namespace py {

namespace detail {

/// `cls(…)` as the interpreter calls any class.
PyObject* call_class(PyObject* cls, PyObject* const* values, std::size_t count, PyObject* keywords) noexcept;

/// Whether nothing was bound in the class, or in its bases, since its construction was shortened.
inline bool is_as_made(Module m, PyTypeObject* cls) noexcept {
    return cls->tp_version_tag == m.state().constructed_version();
}

template <Literal L, auto Initialise>
PyObject* construct(PyObject* cls, PyObject* const* values, std::size_t count, PyObject* keywords) noexcept {
    auto* type = reinterpret_cast<PyTypeObject*>(cls);
    PyObject* module = compat::module_of(type, &module_definition);
    if (module == nullptr) return nullptr;
    // The place in front of the arguments is ours for the time of the call, where the caller says so.
    if ((count & PY_VECTORCALL_ARGUMENTS_OFFSET) == 0 || !is_as_made(Module{module}, type))
        return call_class(cls, values, count, keywords);

    PyObject* self = PyType_GenericAlloc(type, 0);
    if (self == nullptr) return nullptr;
    PyObject** arguments = const_cast<PyObject**>(values) - 1;
    PyObject* in_front = std::exchange(*arguments, self);
    PyObject* result = function_trampoline<L, Initialise>(module, arguments, PyVectorcall_NARGS(count) + 1, keywords);
    *arguments = in_front;
    if (result == nullptr) Py_CLEAR(self);
    Py_XDECREF(result);
    return self;
}

}  // namespace detail

/// Has a class that `make_class` made, with this `__init__` and nothing else that constructing it runs, constructed
/// without a detour; once something is bound in it, it is called as any other.
template <Literal L, auto Initialise>
void shorten_construction(Module m, const Object& cls) {
    auto* type = reinterpret_cast<PyTypeObject*>(cls.ptr());
    if (PyUnstable_Type_AssignVersionTag(type) == 0) return;
    m.state().constructed_version() = type->tp_version_tag;
    type->tp_vectorcall = detail::construct<L, Initialise>;
}

}  // namespace py
