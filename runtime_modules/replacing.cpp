/// \file Puts another object into sys.modules in its own place, as modules with a lazy front do.
#include "runtime_module.hpp"

namespace {

int execute(PyObject* module) {
    const Reference name{PyModule_GetNameObject(module)};
    const Reference replacement{PyModule_NewObject(name.get())};
    if (PyModule_AddObjectRef(replacement.get(), "replaced", module) < 0) return -1;
    if (PyObject_SetItem(PyImport_GetModuleDict(), name.get(), replacement.get()) < 0) return -1;
    if (THEN_FAILS) PyErr_Format(PyExc_RuntimeError, "%U cannot be initialised", name.get());
    return THEN_FAILS ? -1 : 0;
}

}  // namespace

PyMODINIT_FUNC INITIALISE() { return initialise<execute>(MODULE_NAME); }
