/// \file Functions for Python: the table entry made of a signature line, a C++ function and a docstring, and the one
/// trampoline between the interpreter and C++.
#pragma once

#include <exception>
#include <memory>

#include "python/arguments.hpp"
#include "python/error.hpp"
#include "python/module.hpp"

namespace py {

namespace detail {

/// Sets the exception that a call from Python ends with: the one that was raised, or what a C++ exception stands for.
void set_exception(PyObject* raised, bool no_memory) noexcept;

}  // namespace detail

/// Runs a body at the border to C: an exception becomes the interpreter's, and the result null.
template <typename Body>
PyObject* call_from_python(const Body& body) noexcept {
    PyObject* raised = nullptr;
    bool no_memory = false;
    try {
        return body();
    } catch (Error& error) {
        raised = error.release();
    } catch (const std::bad_alloc&) {
        no_memory = true;
    } catch (...) {  // NOLINT(bugprone-empty-catch): it is told by the two being unset
    }
    detail::set_exception(raised, no_memory);
    return nullptr;
}

namespace detail {

/// The default of the I-th parameter, which needs no reference as it is immortal; null where it has none.
template <Literal L, std::size_t I>
PyObject* default_argument() {
    constexpr std::string_view text = signature<L>.parameters[I].default_value;
    if constexpr (text.empty())
        return nullptr;
    else if constexpr (text == "None")
        return Py_None;
    else if constexpr (text == "True" || text == "False")
        return text == "True" ? Py_True : Py_False;
    else
        return PyLong_FromLong(std::integral_constant<long, small_number(text)>::value);
}

/// `Function(m, parameters…)`, where the signature has them with `*parts` as a tuple, and with `**kwargs` as a dict or
/// None where there are no keywords at all.
template <Literal L, auto Function>
struct BoundCall {
    Module m;
    PassedArguments passed;

    // Each C++ frame that an exception unwinds costs as much as a Python call.
    [[gnu::always_inline]] PyObject* operator()() const {
        constexpr auto parsed = signature<L>;
        constexpr std::make_index_sequence<parsed.count> indices;
        PyObject* const* bound = passed.values;
        PyObject* places[parsed.count + 1];
        std::conditional_t<parsed.var_keywords, Object, None> other_keywords = none;  // NOLINT(misc-const-correctness)
        const bool all_by_position = parsed.var_positional || passed.positional == parsed.count;
        if (!all_by_position || parsed.positional != parsed.count || passed.keywords != nullptr) {
            if constexpr (parsed.var_keywords)
                if (passed.keywords != nullptr) other_keywords = dict{};
            if (!bind_arguments(parameter_table<L>, passed, places, other_keywords)) return nullptr;
            [&]<std::size_t... I>(std::index_sequence<I...>) {
                ((places[I] = places[I] != nullptr ? places[I] : default_argument<L, I>()), ...);
            }(indices);
            bound = places;
        }
        return [&]<std::size_t... I>(std::index_sequence<I...>) {
            if constexpr (parsed.var_positional)
                return Function(m, Object::at(bound[I])..., var_positional(passed));
            else if constexpr (parsed.var_keywords)
                return Function(m, Object::at(bound[I])..., other_keywords);
            else
                return Function(m, Object::at(bound[I])...);
        }(indices)
                   .release();
    }
};

template <Literal L, auto Function>
PyObject* trampoline(PyObject* module, PyObject* const* values, Py_ssize_t positional, PyObject* keywords) noexcept {
    return call_from_python(
        BoundCall<L, Function>{Module{module}, {values, static_cast<std::size_t>(positional), keywords}});
}

/// "name(parameters)", a line "--" and an empty line stand before the docstring, which is where the interpreter reads
/// the signature.
template <Literal L, Literal Doc>
consteval auto documentation() {
    constexpr std::string_view separator = "\n--\n\n";
    char text[L.view().size() + separator.size() + Doc.view().size() + 1]{};
    char* end = std::ranges::copy(L.view(), text).out;
    end = std::ranges::copy(separator, end).out;
    std::ranges::copy(Doc.view(), end);
    return Literal{text};
}

template <Literal L, Literal Doc>
inline constexpr auto documentation_text = documentation<L, Doc>();

}  // namespace detail

/// A function as type slots and method tables want it.
template <typename Function>
void* slot(Function function) noexcept {
    return reinterpret_cast<void*>(function);
}

/// For tp_dealloc of a type whose objects are `T`.
template <typename T>
void deallocate(PyObject* self) noexcept {
    PyTypeObject* type = Py_TYPE(self);
    PyObject_GC_UnTrack(self);
    std::destroy_at(reinterpret_cast<T*>(self));
    type->tp_free(self);
    Py_DECREF(type);
}

/// The table entry of a function: `def<"name(first, second=None)", function, "Docstring.">()`.
template <Literal L, auto Function, Literal Doc = "">
PyMethodDef def() noexcept {
    return {function_name<L>.text,
            reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(&detail::trampoline<L, Function>)),
            METH_FASTCALL | METH_KEYWORDS, detail::documentation_text<L, Doc>.text};
}

/// The function of a table entry, which lives as long as the program.
Object function(Module m, PyMethodDef& entry);
/// Whether the object is the function of the entry, so that calling that directly is the same.
bool is_function(const Object& object, Module m, const PyMethodDef& entry) noexcept;
Object make_type(Module m, PyType_Spec& description);
/// An object of the type, filled with zeros.
Object allocate(const Object& type);

/// A function with its first argument given.
Object bound_method(const Object& function, const Object& first);
/// Binds the functions in a class body as methods, with `self` as their first parameter.
void add_methods(Module m, const Object& body, std::span<PyMethodDef> entries);
/// `class name: …` with what its body binds.
Object make_class(Module m, const Object& name, const Object& body);

}  // namespace py
