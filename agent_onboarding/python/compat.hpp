/// \file The one place that knows which interpreter it is compiled for.
///
/// "Missing is a value, error is an exception": CPython 3.13 has calls that tell the two apart, for 3.12 they are
/// spelled out here with the documented calls of that version.
#pragma once

#include <Python.h>

namespace py::compat {

/// 1 and a new reference, 0 and null when missing, -1 with an exception set.
inline int find_item(PyObject* dict, PyObject* key, PyObject** value) noexcept {
#if PY_VERSION_HEX >= 0x030D0000
    return PyDict_GetItemRef(dict, key, value);
#else
    *value = Py_XNewRef(PyDict_GetItemWithError(dict, key));
    return *value != nullptr ? 1 : PyErr_Occurred() != nullptr ? -1 : 0;
#endif
}

/// 1 and a new reference, 0 and null when missing, -1 with an exception set.
inline int find_attribute(PyObject* object, PyObject* name, PyObject** value) noexcept {
#if PY_VERSION_HEX >= 0x030D0000
    return PyObject_GetOptionalAttr(object, name, value);
#else
    *value = PyObject_GetAttr(object, name);
    if (*value != nullptr) return 1;
    if (PyErr_ExceptionMatches(PyExc_AttributeError) == 0) return -1;
    PyErr_Clear();
    return 0;
#endif
}

/// Which of its two methods the `with` statement asks for first, and whether it names the other when that is missing.
inline constexpr bool with_asks_for_exit_first = PY_VERSION_HEX >= 0x030E0000;
inline constexpr const char* missed_enter = PY_VERSION_HEX >= 0x030E0000 ? " (missed __enter__ method)" : "";

/// A new reference to the name by which the `with` statement calls an object's type, or null with an exception set.
inline PyObject* type_name_in_errors(PyObject* object) noexcept {
#if PY_VERSION_HEX >= 0x030E0000
    return PyType_GetFullyQualifiedName(Py_TYPE(object));
#else
    return PyUnicode_FromString(Py_TYPE(object)->tp_name);
#endif
}

}  // namespace py::compat
