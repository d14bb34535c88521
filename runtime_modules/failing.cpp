/// \file Fails in its initialisation, after it has registered a codec error handler under its own name.
#include "runtime_module.hpp"

namespace {

int execute(PyObject* module) {
    const Reference name{PyModule_GetNameObject(module)};
    const Reference handler{PyCodec_LookupError("strict")};
    if (PyCodec_RegisterError(MODULE_NAME, handler.get()) < 0) return -1;
    PyErr_Format(EXCEPTION, "%U cannot be initialised", name.get());
    return -1;
}

}  // namespace

PyMODINIT_FUNC INITIALISE() { return initialise<execute>(MODULE_NAME); }
