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

/// Negative with an exception set.
inline int discard_item(PyObject* dict, PyObject* key) noexcept {
#if PY_VERSION_HEX >= 0x030D0000
    return PyDict_Pop(dict, key, nullptr);
#else
    const int found = PyDict_Contains(dict, key);
    return found > 0 ? PyDict_DelItem(dict, key) : found;
#endif
}

/// Stands where a class in C has its methods, to tell that `set_module` has given it its module: subclasses do not
/// inherit the field, and nobody reads it once a class is made.
inline PyMethodDef own_class_mark[1]{};

/// Makes the module the one that methods of the class find. `PyType_FromModuleAndSpec` would do so itself, but only
/// `type()` makes classes that are like any other in every respect, and it leaves this field empty.
inline void set_module(PyObject* cls, PyObject* module) noexcept {
    auto* heap_type = reinterpret_cast<PyHeapTypeObject*>(cls);
    Py_XSETREF(heap_type->ht_module, Py_NewRef(module));
    heap_type->ht_type.tp_methods = own_class_mark;
}

/// The module of the class, or of its first base that has one by this definition, borrowed; null with an exception set.
inline PyObject* module_of(PyTypeObject* type, PyModuleDef* definition) noexcept {
    if (type->tp_methods == own_class_mark) [[likely]]
        return reinterpret_cast<PyHeapTypeObject*>(type)->ht_module;
    return PyType_GetModuleByDef(type, definition);
}

}  // namespace py::compat
