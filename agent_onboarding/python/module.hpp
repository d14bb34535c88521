/// \file The module's namespace: every name that a function refers to is read from it at the moment of use.
#pragma once

#include <atomic>
#include <cstdint>

#include "python/iterate.hpp"
#include "python/text.hpp"

namespace py {

/// What a module remembers: its interned names, and which values they had in its namespace, and in those of the modules
/// that it names, when one of these last changed.
class ModuleState {
public:
    ModuleState() noexcept;
    ~ModuleState();
    ModuleState(const ModuleState&) = delete;
    ModuleState& operator=(const ModuleState&) = delete;

    /// First in the module's execution.
    static void begin(PyObject* module) noexcept;
    /// For the module definition's m_traverse, m_clear and m_free.
    static int traverse(PyObject* module, visitproc visit, void* arg) noexcept;
    static int clear(PyObject* module) noexcept;
    static void release(void* module) noexcept;

    [[nodiscard]] Object* names() noexcept { return names_; }
    /// The type of the module's iterators; empty until the first is made.
    [[nodiscard]] std::optional<Object>& generator_type() noexcept { return generator_type_; }
    /// What the module's namespace binds to the name, borrowed from it; for a dotted name, what a module in it does. Null
    /// where it is not bound, and where only a look-up of attributes can tell.
    [[nodiscard]] PyObject* value(PyObject* module, const DottedName& name) {
        PyObject* value = remembered(name);
        return value != nullptr ? value : look_up(module, name);
    }
    /// The value, where it is remembered; an owner may have got another class since.
    [[nodiscard]] PyObject* remembered(const DottedName& name) const noexcept {
        const Remembered& last = remembered_[name.place.index()];
        if (last.epoch != epoch_.load(std::memory_order_relaxed)) return nullptr;
        for (PyObject* owner : last.owners)
            if (owner != nullptr && !PyModule_CheckExact(owner)) return nullptr;
        return last.value;
    }

    /// The version of the class whose construction is shortened, by which the interpreter tells what it looked up in it
    /// before something was bound in it or in its bases; 0 where there is none.
    [[nodiscard]] unsigned& constructed_version() noexcept { return constructed_version_; }

private:
    /// Holds in one epoch.
    struct Remembered {
        std::uint64_t epoch;
        PyObject* value;
        std::array<PyObject*, 2> owners;  // the modules it was found in, innermost first
    };

    /// Every change of a watched namespace, in whatever interpreter, begins a new epoch.
    static inline std::atomic<std::uint64_t> epoch_{1};
    static int begin_epoch(PyDict_WatchEvent event, PyObject* globals, PyObject* name, PyObject* value) noexcept;

    /// The state, once the module's execution has begun.
    static ModuleState* of(PyObject* module) noexcept;

    PyObject* look_up(PyObject* module, const DottedName& name);
    void remember(const DottedName& name, PyObject* value);
    /// Whether changes of the namespace are noticed from now on.
    bool watch(PyObject* globals);
    void unwatch_all() noexcept;

    bool has_begun_ = true;  // The interpreter's memory for a state is filled with zeros.
    int watcher_;            // negative where the interpreter has none left: then nothing is remembered
    // Not a vector: with its exceptions the module would be an eighth larger.
    std::array<Object, 32> watched_;
    std::size_t watched_count_ = 0;
    std::optional<Object> generator_type_;
    unsigned constructed_version_ = 0;
    Remembered remembered_[value_capacity]{};
    Object names_[name_capacity];
};

/// The definition of this extension module, by which the methods of its classes find it.
extern PyModuleDef module_definition;

/// The module whose function runs; whoever called the function keeps it alive.
class Module {
public:
    explicit Module(PyObject* module) noexcept
        : module_(module), state_(static_cast<ModuleState*>(PyModule_GetState(module))) {}

    [[nodiscard]] PyObject* ptr() const noexcept { return module_; }
    [[nodiscard]] ModuleState& state() const noexcept { return *state_; }
    /// What the module binds to the name, borrowed; null where it does not bind it.
    [[nodiscard]] PyObject* find(const DottedName& name) const { return state_->value(module_, name); }
    /// `globals()`
    [[nodiscard]] Object globals() const { return Object::borrow(PyModule_GetDict(module_)); }

    /// `name` or `name.attribute`; a NameError where the module does not bind the name.
    template <Literal L>
    [[nodiscard]] Object get() const {
        PyObject* value = state_->value(module_, dotted_name<L>);
        return value != nullptr ? Object::borrow(value) : look_up(dotted_name<L>);
    }
    /// `hasattr(name, "attribute")` for "name.attribute"
    template <Literal L>
    [[nodiscard]] bool has() const {
        return has(dotted_name<L>);
    }
    /// `name = value`
    template <Literal L, typename Value>
    void set(const Value& value) const {
        globals().set_item(string_name<L>.get(), to_object(value));
    }
    /// `name(…)`, `name.attribute(…)`
    template <Literal L, typename... Arguments>
    Object call(const Arguments&... arguments) const {
        return detail::with_stack([m = *this](detail::Stack stack) { return call(m, dotted_name<L>, stack); },
                                  to_object(arguments)...);
    }

private:
    [[nodiscard]] Object get(const DottedName& name) const;
    [[nodiscard]] Object look_up(const DottedName& name) const;
    [[nodiscard]] bool has(const DottedName& name) const;
    /// What `call` does not find remembered, kept out of its way.
    PyObject* call_looked_up(const DottedName& name, detail::Stack stack) const;
    static PyObject* call(Module m, const DottedName& name, detail::Stack stack);

    PyObject* module_;
    ModuleState* state_;
};

/// Makes a module's strings the ones in use while one of its functions runs.
class UseNames {
public:
    explicit UseNames(Module m) noexcept : outer_(names_in_use) { names_in_use = m.state().names(); }
    ~UseNames() { names_in_use = outer_; }
    UseNames(const UseNames&) = delete;
    UseNames& operator=(const UseNames&) = delete;

private:
    Object* outer_;
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
