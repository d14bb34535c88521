/// \file A module of the layer alone, for what no operation of the module can show.
#include "python/blocks.hpp"
#include "python/function.hpp"

namespace {

using namespace py;
using Value = const Object&;

/// `late(x(), key=x())`, `f"{x()} {x()}"` and `(x(), x())`
Object in_order(Module m, Value x) {
    const Object called = invoke{m.get<"late">(), invoke{x}, kw<"key">(invoke{x})};
    return list{called, fstring<"{} {}">{invoke{x}, invoke{x}}, tuple{invoke{x}, invoke{x}}};
}

/// Everything that has a short way for exact strings, dicts, lists or classes.
Object use(Module, Value x) {
    append(x, x);
    discard(x, x);
    // NOLINTBEGIN(misc-redundant-expression): what the type answers shows which operator was called
    const Object answers = list{strip(x),        x.get<"name">(),       fstring<"{}">{x}, x + x,  starts_with(x, x),
                                ends_with(x, x), contains_any<"ab">(x), x == x,           x != x, type_name(x)};
    // NOLINTEND(misc-redundant-expression)
    for (const Object& item : iterate(x)) append(answers, item);
    return answers;
}

PyMethodDef functions[] = {def<"in_order(x)", in_order>(),
                           def<"use(x)", use>(),
                           def<"try_finally(body, cleanup)",
                               +[](Module, Value body, Value cleanup) {
                                   return try_finally([&] { return invoke{body}; }, [&] { invoke{cleanup}; });
                               }>(),
                           def<"with_(manager, body)",
                               +[](Module, Value manager, Value body) {
                                   return with(manager, [&](Value value) -> Object { return invoke{body, value}; });
                               }>(),
                           {}};

int execute(PyObject* module) noexcept {
    return call_from_python([=] { return ModuleState::begin(module), module; }) != nullptr ? 0 : -1;
}

PyModuleDef_Slot slots[] = {{Py_mod_exec, reinterpret_cast<void*>(&execute)},
                            {Py_mod_multiple_interpreters, Py_MOD_PER_INTERPRETER_GIL_SUPPORTED},
                            {0, nullptr}};

PyModuleDef definition = {PyModuleDef_HEAD_INIT, "layer_test",       nullptr,
                          sizeof(ModuleState),   functions,          slots,
                          ModuleState::traverse, ModuleState::clear, ModuleState::release};

}  // namespace

PyMODINIT_FUNC PyInit_layer_test() { return PyModuleDef_Init(&definition); }
