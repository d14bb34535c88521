/// \file Names of the module, of the interpreter, and of other modules.
#include "python/module.hpp"

#include <memory>
#include <new>

namespace py {

ModuleState::ModuleState(PyObject* globals) noexcept : watcher_(PyDict_AddWatcher(begin_epoch)) {
    if (watcher_ >= 0 && PyDict_Watch(watcher_, globals) == 0) return;
    PyErr_Clear();
    watcher_ = -1;
}

ModuleState::~ModuleState() {
    if (watcher_ >= 0 && PyDict_ClearWatcher(watcher_) < 0) PyErr_Clear();
}

int ModuleState::begin(PyObject* module) noexcept {
    new (PyModule_GetState(module)) ModuleState{PyModule_GetDict(module)};
    const UseNames names{Module{module}};
    try {
        Name::intern_all();
        return 0;
    } catch (...) {
        translate_exception();
        return -1;
    }
}

void ModuleState::release(void* module) noexcept {
    auto* state = static_cast<ModuleState*>(PyModule_GetState(static_cast<PyObject*>(module)));
    if (state != nullptr && state->watcher_ != 0) std::destroy_at(state);
}

int ModuleState::begin_epoch(PyDict_WatchEvent, PyObject*, PyObject*, PyObject*) noexcept {
    ++epoch_;
    return 0;
}

PyObject* ModuleState::look_up(PyObject* module, const Name& name) {
    PyObject* globals = PyModule_GetDict(module);  // null once the garbage collector has cleared the module
    PyObject* value = nullptr;
    if (globals == nullptr || check(compat::find_item(globals, name.ptr(), &value)) == 0) return nullptr;
    Py_DECREF(value);  // the namespace keeps it
    if (watcher_ < 0) return value;
    if (!is_current()) {
        std::ranges::fill(values_, nullptr);
        values_epoch_ = epoch_;
    }
    values_[name.index()] = value;
    return value;
}

namespace {

[[noreturn]] void refuse_name(const Object& name) {
    raise(PyExc_NameError, text<"name '{}' is not defined">(name), kw<"name">(name));
}

}  // namespace

Object Module::look_up(const Name& name) const {
    PyObject* value = find(name);
    if (value == nullptr) refuse_name(name.get());
    return Object::borrow(value);
}

Object Module::get_path(Path path) const {
    Object value = look_up(*path.front());
    if (path.size() == 1) return value;
    return detail::get_path(value.ptr(), path.subspan(1));
}

bool Module::has_attribute(Path path) const {
    return detail::find(get_path(path.first(path.size() - 1)).ptr(), *path.back()).has_value();
}

Object Module::call_path(Path path, const detail::Stack& stack) const {
    const Object value = look_up(*path.front());
    return path.size() == 1 ? detail::call(value.ptr(), stack) : detail::call_path(value.ptr(), path.subspan(1), stack);
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
