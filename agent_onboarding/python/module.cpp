/// \file The module's state and its names.
#include "python/module.hpp"

#include <memory>
#include <new>

#include "python/compat.hpp"
#include "python/error.hpp"

namespace py {

// Not PyEval_GetBuiltins, which answers with those of the Python frame that runs.
ModuleState::ModuleState()
    : builtins_(Object::borrow(PyModule_GetDict(Object::steal(PyImport_ImportModule("builtins")).ptr()))),
      names_(NameTable::acquire()) {}

ModuleState::~ModuleState() { names_->release(); }

void ModuleState::begin(PyObject* module) { new (PyModule_GetState(module)) ModuleState; }

ModuleState* ModuleState::of(PyObject* module) noexcept {
    auto* state = static_cast<ModuleState*>(PyModule_GetState(module));
    return state != nullptr && state->names_ != nullptr ? state : nullptr;
}

int ModuleState::traverse(PyObject* module, visitproc visit, void* arg) noexcept {
    const ModuleState* state = of(module);
    if (state == nullptr) return 0;
    Py_VISIT(state->builtins_.ptr());
    if (state->generator_type_.has_value()) Py_VISIT(state->generator_type_->ptr());
    return 0;
}

// The built-ins stay: a function of the module may still be called, and their namespace clears itself.
int ModuleState::clear(PyObject* module) noexcept {
    if (ModuleState* state = of(module)) state->generator_type_.reset();
    return 0;
}

void ModuleState::release(void* module) noexcept {
    if (ModuleState* state = of(static_cast<PyObject*>(module))) std::destroy_at(state);
}

void Module::set(const char* name, const Object& value) const {
    check(PyDict_SetItemString(globals().ptr(), name, value.ptr()));
}

Object Module::get(const Name& name) const {
    PyObject* value = name.find_in(PyModule_GetDict(module_));
    if (value == nullptr) value = name.find_in(state().builtins().ptr());
    if (value != nullptr) return Object::steal(value);
    raise(invoke{PyExc_NameError, fstring<"name '{}' is not defined">{name.get()}, kw<"name">(name.get())});
}

}  // namespace py
