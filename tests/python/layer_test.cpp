/// \file A module of the layer alone: each function does in C++ what its test has in plain Python.
#include "python/blocks.hpp"
#include "python/bytes.hpp"
#include "python/function.hpp"

namespace {

using namespace py;
using Value = const Object&;

/// Copies, moves and assigns handles, to themselves too; they end with an exception that has the references they held.
Object hold(Module, Value value) {
    const Py_ssize_t before = Py_REFCNT(value.ptr());
    Object copy = value, moved = std::move(copy), &itself = moved;
    copy = moved = itself;
    moved = std::move(itself);
    raise(PyExc_KeyError, to_object(Py_REFCNT(value.ptr()) - before));
}

Object handle(Module, Value body, Value type, Value handler) {
    try {
        return body();
    } catch (const Error& error) {
        const Handling except{error};
        if (!except.caught(type)) throw;
        return handler(except.value());
    }
}

Object items(Module, Value iterable) {
    const Object result = list();
    for (const Object& item : iterate(iterable)) append(result, item);
    return result;
}

Object options(Module, Value a, Value b, Value c, Value d, Value e, const Keywords& keywords) {
    const Object result = list(a, b, c, d, e);
    for (const auto& [name, value] : keywords) append(result, tuple(name, value));
    return result;
}

Object split_last_(Module, Value text) {
    const auto names = split_last(text, "a"_s);
    return names.has_value() ? tuple((*names)[0], (*names)[1]) : none();
}

PyMethodDef functions[] = {
    def<"hold(x)", hold>(),
    def<"get(x)", +[](Module, Value x) { return x.get<"name.__class__">(); }>(),
    def<"find(x)", +[](Module, Value x) { return x.find<"name">().value_or("missing"_s); }>(),
    def<"has(x)", +[](Module m, Value x) { return m.set<"x">(x), to_object(m.has<"x.name">()); }>(),
    def<"global_()", +[](Module m) { return m.get<"late">(); }>(),
    def<"dotted()", +[](Module m) { return tuple(m.get<"late.name.real">(), m.call<"late.name.conjugate">()); }>(),
    def<"call(x)", +[](Module, Value x) { return x.call<"name">(1, kw<"b">(true), kw<"a">(2)); }>(),
    def<"lookup(x)",
        +[](Module, Value x) { return tuple(x.lookup<"name">(), x.lookup<"name">(0), x.lookup<"name">(dict)); }>(),
    def<"raise_(x)", +[](Module, Value x) -> Object { raise(x); }>(),
    def<"raise_from(x, cause)", +[](Module, Value x, Value cause) -> Object { raise_from(x, cause); }>(),
    def<"handle(body, type, handler)", handle>(),
    def<"try_finally(body, cleanup)", +[](Module, Value body, Value cleanup) { return try_finally(body, cleanup); }>(),
    def<"with_(manager, body)", +[](Module, Value manager, Value body) { return with(manager, body); }>(),
    def<"text_(x, y)", +[](Module, Value x, Value y) { return text<"<{}> - {}">(x, y); }>(),
    def<"strip(x)", +[](Module, Value x) { return strip(x); }>(),
    def<"starts_with(x, y)", +[](Module, Value x, Value y) { return to_object(starts_with(x, y)); }>(),
    def<"ends_with(x, y)", +[](Module, Value x, Value y) { return to_object(ends_with(x, y)); }>(),
    def<"begins(x, y)", +[](Module, Value x, Value y) { return to_object(starts_with(x, y, "a"_s)); }>(),
    def<"contains_any(x)", +[](Module, Value x) { return to_object(contains_any<"\0a">(x)); }>(),
    def<"split_last(x)", split_last_>(),
    def<"join_(*parts)", +[](Module, const Positional& parts) { return join("-a"_s, parts); }>(),
    def<"type_name_(x)", +[](Module, Value x) { return type_name(x); }>(),
    def<"eight_bytes(x, y)", +[](Module, Value x, Value y) { return eight_bytes_each(x, y); }>(),
    def<"append_(x)", +[](Module, Value x) { return append(x, to_object(1)), x; }>(),
    def<"discard_(x)", +[](Module, Value x) { return discard(x, "name"_s), x; }>(),
    def<"compare(x, y)", +[](Module, Value x, Value y) { return to_object((x == y) - (x != y)); }>(),
    def<"add(left, right)", +[](Module, Value left, Value right) { return left + right; }>(),
    def<"items(iterable)", items>(),
    def<"parts(*parts)", +[](Module, const Positional& parts) { return parts.tuple(); }>(),
    def<"options(first, second=None, *, third=True, fourth=False, fifth=64, **kwargs)", options>(),
    {}};

int execute(PyObject* module) noexcept { return ModuleState::begin(module), 0; }

PyModuleDef_Slot slots[] = {{Py_mod_exec, reinterpret_cast<void*>(&execute)},
                            {Py_mod_multiple_interpreters, Py_MOD_PER_INTERPRETER_GIL_SUPPORTED},
                            {0, nullptr}};

}  // namespace

PyModuleDef py::module_definition = {PyModuleDef_HEAD_INIT, "layer_test",       nullptr,
                                     sizeof(ModuleState),   functions,          slots,
                                     ModuleState::traverse, ModuleState::clear, ModuleState::release};

PyMODINIT_FUNC PyInit_layer_test() { return PyModuleDef_Init(&module_definition); }
