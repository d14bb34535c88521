/// \file Names of the module, of the interpreter, and of other modules.
#include "python/module.hpp"

#include <memory>
#include <new>

namespace py {

ModuleState::ModuleState() noexcept : watcher_(PyDict_AddWatcher(begin_epoch)) {
    if (watcher_ < 0) PyErr_Clear();
}

ModuleState::~ModuleState() {
    unwatch_all();
    if (watcher_ >= 0 && PyDict_ClearWatcher(watcher_) < 0) PyErr_Clear();
}

void ModuleState::begin(PyObject* module) noexcept { new (PyModule_GetState(module)) ModuleState; }

ModuleState* ModuleState::of(PyObject* module) noexcept {
    auto* state = static_cast<ModuleState*>(PyModule_GetState(module));
    return state != nullptr && state->has_begun_ ? state : nullptr;
}

int ModuleState::traverse(PyObject* module, visitproc visit, void* arg) noexcept {
    const ModuleState* state = of(module);
    if (state == nullptr) return 0;
    for (const Object& globals : state->watched_) Py_VISIT(globals.ptr());  // null behind the last
    if (state->generator_type_.has_value()) Py_VISIT(state->generator_type_->ptr());
    return 0;
}

int ModuleState::clear(PyObject* module) noexcept {
    ModuleState* state = of(module);
    if (state == nullptr) return 0;
    state->unwatch_all();
    state->generator_type_.reset();
    return 0;
}

void ModuleState::release(void* module) noexcept {
    if (ModuleState* state = of(static_cast<PyObject*>(module))) std::destroy_at(state);
}

int ModuleState::begin_epoch(PyDict_WatchEvent, PyObject*, PyObject*, PyObject*) noexcept {
    ++epoch_;
    return 0;
}

bool ModuleState::watch(PyObject* globals) {
    if (watcher_ < 0) return false;
    if (std::ranges::any_of(watched_, [=](const Object& one) { return one.ptr() == globals; })) return true;
    if (watched_count_ == watched_.size()) return false;
    check(PyDict_Watch(watcher_, globals));
    watched_[watched_count_++] = Object::borrow(globals);
    return true;
}

void ModuleState::unwatch_all() noexcept {
    ++epoch_;
    while (watched_count_ > 0) {
        const Object globals = std::exchange(watched_[--watched_count_], Object{});
        if (PyDict_Unwatch(watcher_, globals.ptr()) < 0) PyErr_Clear();
    }
}

namespace {

/// What the namespace of a module, which the garbage collector may have cleared, binds to the name, borrowed from it.
PyObject* find_in(PyObject* globals, const Name& name) {
    PyObject* value = nullptr;
    if (globals == nullptr || check(compat::find_item(globals, name.ptr(), &value)) == 0) return nullptr;
    Py_DECREF(value);
    return value;
}

}  // namespace

// Only the special names of the module type come before a module's own.
PyObject* ModuleState::look_up(PyObject* module, const DottedName& name) {
    PyObject* owner = module;
    if (name.owner != nullptr) {
        owner = value(module, *name.owner);
        if (owner == nullptr || !PyModule_CheckExact(owner) || name.attribute.is_special()) return nullptr;
    }
    PyObject* globals = PyModule_GetDict(owner);
    PyObject* value = find_in(globals, name.attribute);
    if (value != nullptr && watch(globals)) remember(name, value);
    return value;
}

void ModuleState::remember(const DottedName& name, PyObject* value) {
    Remembered found{epoch_, value, {}};
    if (name.owner != nullptr) {
        const Remembered& owner = remembered_[name.owner->place.index()];
        if (owner.epoch != found.epoch || owner.owners[1] != nullptr) return;
        found.owners = {owner.value, owner.owners[0]};
    }
    remembered_[name.place.own_index()] = found;
}

namespace {

[[noreturn]] void refuse_name(const Object& name) {
    raise(PyExc_NameError, text<"name '{}' is not defined">(name), kw<"name">(name));
}

}  // namespace

Object Module::get(const DottedName& name) const {
    PyObject* value = state_->value(module_, name);
    return value != nullptr ? Object::borrow(value) : look_up(name);
}

/// What only the attributes can tell.
Object Module::look_up(const DottedName& name) const {
    if (name.owner == nullptr) refuse_name(name.attribute.get());
    return Object::steal(detail::get(get(*name.owner).ptr(), name.attribute));
}

bool Module::has(const DottedName& name) const {
    return state_->value(module_, name) != nullptr || detail::find(get(*name.owner).ptr(), name.attribute).has_value();
}

PyObject* Module::call_looked_up(const DottedName& name, detail::Stack stack) const {
    if (PyObject* value = state_->value(module_, name)) return detail::call(Object::borrow(value).ptr(), stack);
    if (name.owner == nullptr) refuse_name(name.attribute.get());
    return detail::call_method(get(*name.owner).ptr(), name.attribute, stack);
}

PyObject* Module::call(Module m, const DottedName& name, detail::Stack stack) {
    PyObject* value = m.state_->remembered(name);
    if (value == nullptr) [[unlikely]]
        return m.call_looked_up(name, stack);
    return detail::call(Object::borrow(value).ptr(), stack);
}

Object builtin(const Object& name) {
    const Object builtins = Object::steal(PyImport_GetModule("builtins"_s.ptr()));
    PyObject* value = nullptr;
    if (check(compat::find_attribute(builtins.ptr(), name.ptr(), &value)) == 0) refuse_name(name);
    return Object::steal(value);
}

Object import_module(Module m, const Object& name, const Object& from_list) {
    return builtin("__import__"_s)(name, m.globals(), none(), from_list, 0);
}

namespace {

/// A submodule whose import is under way is registered before it is an attribute of its package.
std::optional<Object> registered_submodule(const Object& package, const Object& name) {
    const Object full_name = text<"{}.{}">(package.get<"__name__">(), name);
    PyObject* module = PyImport_GetModule(full_name.ptr());
    if (module != nullptr) return Object::steal(module);
    if (PyErr_Occurred() != nullptr) throw_pending();
    return std::nullopt;
}

[[noreturn]] void refuse_import(const Object& package, const Object& name) {
    const Object path = get_or_none<"__file__">(package);
    const Object package_name = package.get<"__name__">();
    const Object place = path.is_none() ? "unknown location"_s : path;
    const Object message = text<"cannot import name {} from {} ({})">(repr(name), repr(package_name), place);
    raise(call(PyExc_ImportError, message, kw<"name">(package_name), kw<"path">(path), kw<"name_from">(name)));
}

}  // namespace

Object imported_name(const Object& package, const Object& name) {
    PyObject* found = nullptr;
    if (check(compat::find_attribute(package.ptr(), name.ptr(), &found)) != 0) return Object::steal(found);
    if (std::optional<Object> submodule = registered_submodule(package, name)) return *std::move(submodule);
    refuse_import(package, name);
}

Object import_from(Module m, const Object& package, const Object& name) {
    return imported_name(import_module(m, package, tuple(name)), name);
}

}  // namespace py
