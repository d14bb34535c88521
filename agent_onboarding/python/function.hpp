/// \file Functions for Python: the table entry made of a signature line, a C++ function and a docstring, and the one
/// trampoline between the interpreter and C++.
#pragma once

#include "python/module.hpp"
#include "python/params.hpp"

namespace py {

/// Runs the body at the border to C: an exception becomes the interpreter's, and the result null, as that of a refusal.
template <typename Body>
PyObject* guarded(Body body) noexcept {
    try {
        return body().release();
    } catch (const Error& error) {  // not left to the other handler, which throws anew to tell exceptions apart
        error.restore();
    } catch (...) {
        translate_exception();
    }
    return nullptr;
}

namespace detail {

template <Literal L, std::size_t... I>
inline constexpr const Name* parameter_names[sizeof...(I) + 1] = {&string_name<parameter_name<L, I>>..., nullptr};

template <Literal L>
inline constexpr Binding binding = []<std::size_t... I>(std::index_sequence<I...>) {
    constexpr auto line = signature<L>;
    return Binding{function_name<L>.text, parameter_names<L, I...>, line.count,       line.positional,
                   line.required,         line.var_positional,      line.var_keywords};
}(std::make_index_sequence<signature<L>.count>{});

template <Literal L, std::size_t I>
auto argument(PyObject* bound) {
    constexpr Parameter parameter = signature<L>.parameters[I];
    if constexpr (parameter.kind == Default::integer)
        return bound != nullptr ? Object::borrow(bound) : to_object(parameter.number);
    else if constexpr (parameter.kind == Default::none)
        return Borrowed{bound != nullptr ? bound : Py_None};
    else if constexpr (parameter.kind == Default::required)
        return Borrowed{bound};
    else
        return Borrowed{bound != nullptr ? bound : parameter.kind == Default::true_ ? Py_True : Py_False};
}

/// Calls the body with the parameters in order, then `*parts` or `**kwargs` where the signature has them.
template <Literal L, typename Body>
Outcome call_bound(const Arguments& arguments, Body body) {
    constexpr auto line = signature<L>;
    PyObject* places[line.count + 1];
    PyObject* const* bound = arguments.values;
    constexpr bool all_by_position = line.var_positional || line.count == line.positional;
    const bool is_complete = line.var_positional || arguments.positional == line.count;
    if (!all_by_position || !is_complete || arguments.keywords != nullptr) {
        if (!bind(binding<L>, arguments, places)) return Outcome::refusal();
        bound = places;
    }
    return [&]<std::size_t... I>(std::index_sequence<I...>) -> Outcome {
        if constexpr (signature<L>.var_positional)
            return body(argument<L, I>(bound[I])..., Positional{arguments});
        else if constexpr (signature<L>.var_keywords)
            return body(argument<L, I>(bound[I])..., Keywords{binding<L>, arguments});
        else
            return body(argument<L, I>(bound[I])...);
    }(std::make_index_sequence<line.count>{});
}

/// Runs `Function(m, leading…, parameters…)` for one call of the interpreter.
template <Literal L, auto Function>
PyObject* enter(Module m, const Arguments& arguments, const std::same_as<Object> auto&... leading) noexcept {
    const UseNames names{m};
    return guarded([&] {
        return call_bound<L>(
            arguments, [&](const auto&... parameters) -> Outcome { return Function(m, leading..., parameters...); });
    });
}

template <Literal L, auto Function>
PyObject* function_trampoline(PyObject* module, PyObject* const* values, Py_ssize_t positional,
                              PyObject* keywords) noexcept {
    return enter<L, Function>(Module{module}, Arguments{values, static_cast<std::size_t>(positional), keywords});
}

/// `self` is a pair of the module and what the closure has captured.
template <Literal L, auto Function>
PyObject* closure_trampoline(PyObject* self, PyObject* const* values, Py_ssize_t positional,
                             PyObject* keywords) noexcept {
    const Module m{PyTuple_GET_ITEM(self, 0)};
    return enter<L, Function>(m, Arguments{values, static_cast<std::size_t>(positional), keywords},
                              Object::borrow(PyTuple_GET_ITEM(self, 1)));
}

/// `self` is no part of the parameters; the signature line has it as "$self".
template <Literal L, auto Function>
PyObject* method_trampoline(PyObject* self, PyObject* const* values, Py_ssize_t positional,
                            PyObject* keywords) noexcept {
    PyObject* module = compat::module_of(Py_TYPE(self), &module_definition);
    if (module == nullptr) return nullptr;
    const Borrowed receiver{self};
    return enter<L, Function>(Module{module}, Arguments{values, static_cast<std::size_t>(positional), keywords},
                              static_cast<const Object&>(receiver));
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

template <Literal L, Literal Doc, typename Trampoline>
PyMethodDef table_entry(Trampoline trampoline) noexcept {
    return {function_name<L>.text, reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(trampoline)),
            METH_FASTCALL | METH_KEYWORDS, documentation_text<L, Doc>.text};
}

}  // namespace detail

/// The table entry of a function: `def<"name(first, second=None)", function, "Docstring.">()`.
template <Literal L, auto Function, Literal Doc = "">
PyMethodDef def() noexcept {
    return detail::table_entry<L, Doc>(&detail::function_trampoline<L, Function>);
}
/// The same for a function that `closure` makes: behind the module it takes what was captured.
template <Literal L, auto Function>
PyMethodDef def_closure() noexcept {
    return detail::table_entry<L, "">(&detail::closure_trampoline<L, Function>);
}
/// The same for a method, `def_method<"name($self, first)", method>()`: behind the module it takes `self`.
template <Literal L, auto Function>
PyMethodDef def_method() noexcept {
    return detail::table_entry<L, "">(&detail::method_trampoline<L, Function>);
}

/// `name = function` for each entry of the table, in order.
inline void bind_functions(Module m, PyMethodDef* table) { check(PyModule_AddFunctions(m.ptr(), table)); }

/// A function that is made while another runs.
Object function(Module m, PyMethodDef& entry);
/// A function of the module as a method, with `self` as its first parameter.
Object method(Module m, PyMethodDef& entry);
/// A function with a captured object.
Object closure(Module m, PyMethodDef& entry, const Object& captured);
/// Whether the module still binds the function of this entry under its name, so that calling it directly is the same.
bool is_bound(Module m, const PyMethodDef& entry, const DottedName& name);

/// `name(…)` for a function of the module, entered directly where the module still binds it.
template <Literal L, auto Function, typename... Arguments>
Object call_own(Module m, const PyMethodDef& entry, const Arguments&... arguments) {
    return is_bound(m, entry, dotted_name<L>) ? Function(m, arguments...) : m.call<L>(arguments...);
}

/// `class name: …` with the attributes of the class body and the methods of the table, which ends with an empty entry.
Object make_class(Module m, const Object& name, const Object& attributes, PyMethodDef* methods);

}  // namespace py
