/// \file Reads an era's data files; built in several versions, so that an update has other bytes.
#include "runtime_module.hpp"

namespace {

/// The numbers in the file, which are separated by white space.
PyObject* read_series(PyObject*, PyObject* path) {
    const Reference pathlib{PyImport_ImportModule("pathlib")};
    const Reference content = call(call(pathlib, "Path", "(O)", path), "read_bytes", nullptr);
    Reference series = call(content, "split", nullptr);
    if (!series) return nullptr;
    for (Py_ssize_t i = 0; i < PyList_GET_SIZE(series.get()); ++i) {
        PyObject* number = PyFloat_FromString(PyList_GET_ITEM(series.get(), i));
        if (number == nullptr) return nullptr;
        PyList_SetItem(series.get(), i, number);
    }
    return series.release();
}

PyMethodDef functions[] = {
    {"read_series", read_series, METH_O, "read_series(path)\n--\n\nThe numbers that the file holds, as floats."},
    {nullptr, nullptr, 0, nullptr},
};

int execute(PyObject* module) { return PyModule_AddIntConstant(module, "VERSION", ERA_DATA_VERSION); }

}  // namespace

PyMODINIT_FUNC PyInit_era_data() { return initialise<execute>("era_data", functions); }

/// The name that older manifests have for the same module.
PyMODINIT_FUNC PyInit_vault() { return PyInit_era_data(); }
