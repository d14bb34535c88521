/// \file The module's namespace: every name that a function refers to is read from it at the moment of use.
#pragma once

#include "python/iterate.hpp"
#include "python/text.hpp"

namespace py {

/// What a module remembers: where its namespace is, and behind that its interned names.
struct ModuleState {
    PyObject* globals;  // borrowed from the module

    [[nodiscard]] PyObject** names() noexcept { return reinterpret_cast<PyObject**>(this + 1); }

    /// For the module definition's m_size, once every slot is reserved.
    static Py_ssize_t size() noexcept {
        return static_cast<Py_ssize_t>(sizeof(ModuleState) + Slot::count() * sizeof(PyObject*));
    }
    /// First in the module's execution; false with an exception set.
    static bool fill(PyObject* module) noexcept;
    /// For the module definition's m_free.
    static void release(void* module) noexcept;
};

/// The module whose function runs; whoever called the function keeps it alive.
class Module {
public:
    explicit Module(PyObject* module) noexcept
        : module_(module), state_(static_cast<ModuleState*>(PyModule_GetState(module))) {}

    [[nodiscard]] PyObject* ptr() const noexcept { return module_; }
    [[nodiscard]] PyObject* const* names() const noexcept { return state_->names(); }
    /// `globals()`
    [[nodiscard]] Object globals() const { return Object::borrow(state_->globals); }

    /// `name` or `name.attribute`; a NameError where the module does not bind the name.
    template <Literal L>
    [[nodiscard]] Object get() const {
        if constexpr (is_dotted<L>)
            return look_up(interned<head<L>>()).template get<tail<L>>();
        else
            return look_up(interned<L>());
    }
    /// `hasattr(name, "attribute")` for "name.attribute"
    template <Literal L>
    [[nodiscard]] bool has() const {
        return get<owner<L>>().template find<member<L>>().has_value();
    }
    /// `name = value`
    template <Literal L, typename Value>
    void set(const Value& value) const {
        check(PyDict_SetItem(state_->globals, interned<L>(), to_object(value).ptr()));
    }
    /// `name(…)`, `name.attribute(…)`
    template <Literal L, typename... Arguments>
    Object call(const Arguments&... arguments) const {
        if constexpr (is_dotted<L>)
            return get<owner<L>>().template call<member<L>>(arguments...);
        else
            return get<L>()(arguments...);
    }

private:
    [[nodiscard]] Object look_up(PyObject* name) const;

    PyObject* module_;
    ModuleState* state_;
};

/// Makes a module's strings the ones in use while one of its functions runs.
class UseNames {
public:
    explicit UseNames(Module m) noexcept : outer_(names_in_use) { names_in_use = m.names(); }
    ~UseNames() { names_in_use = outer_; }
    UseNames(const UseNames&) = delete;
    UseNames& operator=(const UseNames&) = delete;

private:
    PyObject* const* outer_;
};

/// A function or class of the interpreter that programs may rebind, such as `open`.
Object builtin(const Object& name);

/// `import name`, bound to the top-level package; `name` where `from_list` is not None.
Object import_module(Module m, const Object& name, const Object& from_list = none());
/// What `from package import name` binds, once the package was imported with the name in its list.
Object imported_name(const Object& package, const Object& name);
/// `from package import name`
Object import_from(Module m, const Object& package, const Object& name);

}  // namespace py
