/// \file Calls of a class that only run its `__init__`.
#pragma once

#include "python/function.hpp"

namespace py {

namespace detail {

/// `cls(…)` as the interpreter calls any class.
PyObject* call_class(PyObject* cls, PyObject* const* values, std::size_t count, PyObject* keywords) noexcept;

template <Literal L, auto Initialise>
PyObject* construct(PyObject* cls, PyObject* const* values, std::size_t count, PyObject* keywords) noexcept {
    PyObject* module = PyType_GetModuleByDef(reinterpret_cast<PyTypeObject*>(cls), &module_definition);
    if (module == nullptr) return nullptr;
    // The place in front of the arguments is ours for the time of the call, where the caller says so.
    if ((count & PY_VECTORCALL_ARGUMENTS_OFFSET) == 0 || !Module{module}.constructs_as_made(cls))
        return call_class(cls, values, count, keywords);

    PyObject* self = PyType_GenericAlloc(reinterpret_cast<PyTypeObject*>(cls), 0);
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
    reinterpret_cast<PyTypeObject*>(cls.ptr())->tp_vectorcall = detail::construct<L, Initialise>;
    m.remember_construction(cls.ptr());
}

}  // namespace py
