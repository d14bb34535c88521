/// \file The module's namespace: every name that a function refers to is read from it at the moment of use. And the
/// `import` statements, which bind names.
#pragma once

#include "python/text.hpp"

namespace py {

/// What the interpreter keeps for a module.
class ModuleState {
public:
    ModuleState();
    ~ModuleState();
    ModuleState(const ModuleState&) = delete;
    ModuleState& operator=(const ModuleState&) = delete;

    /// First in the module's execution.
    static void begin(PyObject* module);
    /// For the module definition's m_traverse, m_clear and m_free.
    static int traverse(PyObject* module, visitproc visit, void* arg) noexcept;
    static int clear(PyObject* module) noexcept;
    static void release(void* module) noexcept;

    /// The namespace of the interpreter's built-ins.
    [[nodiscard]] const Object& builtins() const noexcept { return builtins_; }
    /// The type of the module's generators; empty until the first is made.
    [[nodiscard]] std::optional<Object>& generator_type() noexcept { return generator_type_; }

private:
    /// The state, once the module's execution has begun: the interpreter fills its memory with zeros.
    static ModuleState* of(PyObject* module) noexcept;

    Object builtins_;
    std::optional<Object> generator_type_;
    NameTable* names_;  // last, so that it is null until everything is there
};

/// The module whose function runs; whoever called the function keeps it alive.
class Module {
public:
    explicit Module(PyObject* module) noexcept : module_(module) {}

    [[nodiscard]] PyObject* ptr() const noexcept { return module_; }
    [[nodiscard]] ModuleState& state() const noexcept { return *static_cast<ModuleState*>(PyModule_GetState(module_)); }
    /// `globals()`
    [[nodiscard]] Object globals() const { return Object::borrow(PyModule_GetDict(module_)); }

    /// `name` or `name.attribute`: from the module's namespace, then from the built-ins, otherwise a NameError.
    template <Literal L>
    [[nodiscard]] Object get() const {
        if constexpr (is_dotted<L>)
            return get<parent<L>>().template attr<last_name<L>>();
        else
            return get(string_name<L>);
    }
    /// `hasattr(name, "attribute")` for "name.attribute"
    template <Literal L>
    [[nodiscard]] bool has() const {
        return get<parent<L>>().template find_attr<last_name<L>>().has_value();
    }
    /// `name = value`
    template <Literal L, typename Item>
    void set(const Item& value) const {
        globals().set_item(string_name<L>.get(), to_object(value));
    }
    void set(const char* name, const Object& value) const;
    /// `name(…)`, `name.attribute(…)`
    template <Literal L, Value... Arguments>
    Object call(Arguments&&... arguments) const {
        if constexpr (is_dotted<L>)
            return get<parent<L>>().template call<last_name<L>>(arguments...);
        else
            return detail::with_arguments([&](detail::Arguments given) { return detail::call(get<L>(), given); },
                                          arguments...);
    }

private:
    [[nodiscard]] Object get(const Name& name) const;

    PyObject* module_;
};

/// `import name`, bound to the top-level package; the module `name` itself where `from_list` is not None.
Object import_module(Module m, const Object& name, const Object& from_list = none);
/// What `from package import name` binds, once the package was imported.
Object imported_name(const Object& package, const Object& name);
/// `from package import name`
Object import_from(Module m, const Object& package_name, const Object& name);

}  // namespace py
