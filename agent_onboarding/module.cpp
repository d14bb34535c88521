/// \file The entry point: multi-phase initialisation, once per interpreter.
#include "parts.hpp"

namespace agent_onboarding {

namespace {

using namespace py;

constexpr const char* documentation = "Agent onboarding subcomponent -- register, login, configure, heartbeat.";

/// The interpreter's own dictionary remembers that the module was initialised; only success counts.
class OncePerInterpreter {
public:
    OncePerInterpreter() : remembered_(interpreter_dict()) {
        if (contains(remembered_, "sablecrest.agent_onboarding"_s))
            raise(PyExc_RuntimeError,
                  "Module 'agent_onboarding' has already been imported. Re-initialisation is not supported."_s);
    }
    void remember() const { remembered_.set_item<"sablecrest.agent_onboarding">(true); }

private:
    /// The interpreter answers with null, and sets no exception, when it has no memory for the dictionary.
    static Object interpreter_dict() {
        PyObject* dict = PyInterpreterState_GetDict(PyInterpreterState_Get());
        if (dict == nullptr) PyErr_NoMemory();
        return Object::borrow(dict);
    }

    Object remembered_;
};

int execute(PyObject* module) noexcept {
    ModuleState::begin(module);
    const Module m{module};
    const UseNames names{m};
    try {
        const OncePerInterpreter once;
        define_module_body(m);
        once.remember();
        return 0;
    } catch (...) {
        translate_exception();
        return -1;
    }
}

PyModuleDef_Slot slots[] = {
    {Py_mod_exec, reinterpret_cast<void*>(&execute)},
    {Py_mod_multiple_interpreters, Py_MOD_PER_INTERPRETER_GIL_SUPPORTED},
    {0, nullptr},
};

}  // namespace

}  // namespace agent_onboarding

PyModuleDef py::module_definition = {
    .m_base = PyModuleDef_HEAD_INIT,
    .m_name = "agent_onboarding",
    .m_doc = agent_onboarding::documentation,
    .m_size = sizeof(py::ModuleState),
    .m_methods = nullptr,
    .m_slots = agent_onboarding::slots,
    .m_traverse = py::ModuleState::traverse,
    .m_clear = py::ModuleState::clear,
    .m_free = py::ModuleState::release,
};

PyMODINIT_FUNC PyInit_agent_onboarding() { return PyModuleDef_Init(&py::module_definition); }
