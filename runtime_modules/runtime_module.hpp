/// \file What the runtime modules share: owned references, calls that pass a failure on, and their initialisation.
#pragma once

#include <Python.h>

#include <memory>

struct Release {
    void operator()(PyObject* object) const noexcept { Py_DECREF(object); }
};
/// An owned reference, null after a failure.
using Reference = std::unique_ptr<PyObject, Release>;

/// `object.method(…)`; null with the exception set where `object` is null already.
template <typename... Arguments>
Reference call(const Reference& object, const char* method, const char* format, Arguments... arguments) {
    return Reference{object ? PyObject_CallMethod(object.get(), method, format, arguments...) : nullptr};
}

/// `object.name`; null with the exception set where `object` is null already.
inline Reference attribute(const Reference& object, const char* name) {
    return Reference{object ? PyObject_GetAttrString(object.get(), name) : nullptr};
}

/// What PyInit_NAME returns for a module whose body is `Execute`.
template <auto Execute>
PyObject* initialise(const char* name, PyMethodDef* functions = nullptr) {
    static PyModuleDef_Slot slots[] = {{Py_mod_exec, reinterpret_cast<void*>(Execute)}, {0, nullptr}};
    static PyModuleDef definition = {
        .m_base = PyModuleDef_HEAD_INIT,
        .m_name = name,
        .m_doc = nullptr,
        .m_size = 0,
        .m_methods = functions,
        .m_slots = slots,
        .m_traverse = nullptr,
        .m_clear = nullptr,
        .m_free = nullptr,
    };
    return PyModuleDef_Init(&definition);
}
