/// \file The entry point: multi-phase initialisation, once per interpreter.
#include "parts.hpp"

namespace agent_onboarding {

namespace {

using namespace py;

constexpr const char* documentation = "Agent onboarding subcomponent -- register, login, configure, heartbeat.";

/// The interpreter's own dictionary; it answers with null, and sets no exception, when it has no memory for it.
Object interpreter_dict() {
    PyObject* dict = PyInterpreterState_GetDict(PyInterpreterState_Get());
    if (dict == nullptr) PyErr_NoMemory();
    return Object::borrow(dict);
}

/// The interpreter remembers that the module was initialised; only success counts.
void initialise_once(Module m) {
    const Object remembered = interpreter_dict();
    if (contains(remembered, "sablecrest.agent_onboarding"_s))
        raise(PyExc_RuntimeError,
              "Module 'agent_onboarding' has already been imported. Re-initialisation is not supported."_s);
    define_module_body(m);
    remembered.set_item<"sablecrest.agent_onboarding">(true);
}

int execute(PyObject* module) noexcept {
    const PyObject* result = call_from_python([=] {
        ModuleState::begin(module);
        initialise_once(Module{module});
        return module;
    });
    return result != nullptr ? 0 : -1;
}

PyModuleDef_Slot slots[] = {
    {Py_mod_exec, reinterpret_cast<void*>(&execute)},
    {Py_mod_multiple_interpreters, Py_MOD_PER_INTERPRETER_GIL_SUPPORTED},
    {0, nullptr},
};

PyModuleDef definition = {
    .m_base = PyModuleDef_HEAD_INIT,
    .m_name = "agent_onboarding",
    .m_doc = documentation,
    .m_size = sizeof(ModuleState),
    .m_methods = nullptr,
    .m_slots = slots,
    .m_traverse = ModuleState::traverse,
    .m_clear = ModuleState::clear,
    .m_free = ModuleState::release,
};

}  // namespace

}  // namespace agent_onboarding

PyMODINIT_FUNC PyInit_agent_onboarding() { return PyModuleDef_Init(&agent_onboarding::definition); }
