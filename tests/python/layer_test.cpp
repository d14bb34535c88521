/// \file A module of the layer alone: each function does in C++ what its test has in plain Python.
#include "python/blocks.hpp"
#include "python/function.hpp"
#include "python/import.hpp"

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
    return try_except([&] { return invoke{body}; },
                      [&](const Handling& except) -> Object {
                          if (!except.caught(type)) except.reraise();
                          return invoke{handler, except.value()};
                      });
}

Object items(Module, Value iterable) {
    const Object result = list{};
    for (const Object& item : iterate(iterable)) append(result, item);
    return result;
}

Object options(Module, Value a, Value b, Value c, Value d, Value e, Value keywords) {
    const Object result = list{a, b, c, d, e};
    if (keywords.is_dict())
        for_each_item(keywords, [&](Value name, Value value) { append(result, tuple{name, value}); });
    return result;
}

/// `late(x(), key=x())`, `f"{x()} {x()}"` and `(x(), x())`
Object in_order(Module m, Value x) {
    const Object called = invoke{m.get<"late">(), invoke{x}, kw<"key">(invoke{x})};
    return list{called, fstring<"{} {}">{invoke{x}, invoke{x}}, tuple{invoke{x}, invoke{x}}};
}

PyMethodDef functions[] = {
    def<"hold(x)", hold>(),
    def<"get(x)", +[](Module, Value x) { return x.attr<"name.__class__">(); }>(),
    def<"find(x)", +[](Module, Value x) { return x.find_attr<"name">().value_or("missing"_s); }>(),
    def<"has(x)", +[](Module m, Value x) { return m.set<"x">(x), to_object(m.has<"x.name">()); }>(),
    def<"global_()", +[](Module m) { return m.get<"late">(); }>(),
    def<"dotted()",
        +[](Module m) -> Object { return tuple{m.get<"late.name.real">(), m.call<"late.name.conjugate">()}; }>(),
    def<"call(x)", +[](Module, Value x) { return x.call<"name">(1, kw<"b">(true), kw<"a">(2)); }>(),
    def<"in_order(x)", in_order>(),
    def<"lookup(x)", +[](Module, Value x) -> Object { return tuple{x.get<"name">(), x.get<"name">(to_object(0))}; }>(),
    def<"raise_(x)", +[](Module, Value x) -> Object { raise(x); }>(),
    def<"raise_from(x, cause)", +[](Module, Value x, Value cause) -> Object { raise_from(x, cause); }>(),
    def<"handle(body, type, handler)", handle>(),
    def<"try_finally(body, cleanup)",
        +[](Module, Value body, Value cleanup) {
            return try_finally([&] { return invoke{body}; }, [&] { invoke{cleanup}; });
        }>(),
    def<"with_(manager, body)",
        +[](Module, Value manager, Value body) {
            return with(manager, [&](Value value) -> Object { return invoke{body, value}; });
        }>(),
    def<"import_from_(package, name)",
        +[](Module m, Value package, Value name) { return import_from(m, package, name); }>(),
    def<"text_(x, y)", +[](Module, Value x, Value y) -> Object { return fstring<"<{}> - {}">{x, y}; }>(),
    def<"strip(x)", +[](Module, Value x) { return strip(x); }>(),
    def<"starts_with(x, y)", +[](Module, Value x, Value y) { return to_object(starts_with(x, y)); }>(),
    def<"ends_with(x, y)", +[](Module, Value x, Value y) { return to_object(ends_with(x, y)); }>(),
    def<"contains_any(x)", +[](Module, Value x) { return to_object(contains_any<"\0a">(x)); }>(),
    def<"type_name_(x)", +[](Module, Value x) { return type_name(x); }>(),
    def<"append_(x)", +[](Module, Value x) { return append(x, to_object(1)), x; }>(),
    def<"discard_(x)", +[](Module, Value x) { return discard(x, "name"_s), x; }>(),
    def<"compare(x, y)", +[](Module, Value x, Value y) { return to_object((x == y) - (x != y)); }>(),
    def<"add(left, right)", +[](Module, Value left, Value right) { return left + right; }>(),
    def<"items(iterable)", items>(),
    def<"parts(*parts)", +[](Module, Value parts) { return parts; }>(),
    def<"options(first, second=None, *, third=True, fourth=False, fifth=64, **kwargs)", options>(),
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
