/// \file An era's own backtester, built against the package's older name: it trades the sign of a signal.
#include <cmath>

#include "runtime_module.hpp"

namespace {

double number_at(const Reference& list, Py_ssize_t index) {
    return PyFloat_AsDouble(PyList_GET_ITEM(list.get(), index));
}

/// Each step's position earns the next change of the vault's prices.
PyObject* backtest(PyObject*, PyObject* arguments) {
    PyObject* signal_argument = nullptr;
    PyObject* price_path = nullptr;
    if (!PyArg_ParseTuple(arguments, "O!O", &PyList_Type, &signal_argument, &price_path)) return nullptr;
    const Reference signal{Py_NewRef(signal_argument)};
    const Reference engine{PyImport_ImportModule("sablecrest.simulator_engine")};
    const Reference prices = call(attribute(engine, "vault"), "read", "(O)", price_path);
    if (!prices) return nullptr;
    const Py_ssize_t count = PyList_Size(prices.get());
    if (count < 2 || PyList_GET_SIZE(signal.get()) != count)
        return PyErr_Format(PyExc_ValueError, "Cannot trade a signal of %zd values on %zd prices.",
                            PyList_GET_SIZE(signal.get()), count);
    double sum = 0, squares = 0;
    for (Py_ssize_t i = 0; i + 1 < count; ++i) {
        const double value = number_at(signal, i);
        const double earned = ((value > 0) - (value < 0)) * (number_at(prices, i + 1) - number_at(prices, i));
        sum += earned;
        squares += earned * earned;
    }
    if (PyErr_Occurred()) return nullptr;
    const double steps = static_cast<double>(count - 1), mean = sum / steps;
    const double deviation = std::sqrt(std::fmax(squares / steps - mean * mean, 0));
    return Py_BuildValue("{s:d,s:d,s:n}", "pnl", sum, "sharpe", deviation > 0 ? mean / deviation : 0.0, "steps",
                         count - 1);
}

PyMethodDef functions[] = {
    {"backtest", backtest, METH_VARARGS, "backtest(signal, price_path)\n--\n\nWhat trading the signal earns."},
    {nullptr, nullptr, 0, nullptr},
};

int execute(PyObject* module) {
    const Reference core{PyImport_ImportModule("src.obfuscation.layers.shared._core")};
    return PyModule_AddObjectRef(module, "ERA_SALT", call(core, "era_salt", "ii", MARKET_ID, ERA_NUMBER).get());
}

}  // namespace

PyMODINIT_FUNC PyInit_backtester() { return initialise<execute>("backtester", functions); }
