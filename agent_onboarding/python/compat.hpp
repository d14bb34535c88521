/// \file The one place that knows which interpreter it is compiled for. CPython 3.13 has calls that tell missing from
/// failed, with 1 and a new reference, 0 and null when missing, -1 with an exception set; 3.12 gets the same ones here.
#pragma once

#include <Python.h>

namespace py::compat {

inline int find_item(PyObject* dict, PyObject* key, PyObject** value) noexcept {
#if PY_VERSION_HEX >= 0x030D0000
    return PyDict_GetItemRef(dict, key, value);
#else
    *value = Py_XNewRef(PyDict_GetItemWithError(dict, key));
    return *value != nullptr ? 1 : PyErr_Occurred() != nullptr ? -1 : 0;
#endif
}

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

}  // namespace py::compat
