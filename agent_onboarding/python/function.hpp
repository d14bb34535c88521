/// \file Functions for Python: the table entry made of a signature line, a C++ function and a docstring, and the one
/// trampoline between the interpreter and C++.
#pragma once

#include "python/module.hpp"
#include "python/params.hpp"

namespace py {

/// Runs the body at the border to C: an exception becomes the interpreter's, and the result null.
template <typename Body>
PyObject* guarded(Body body) noexcept {
    try {
        return body().release();
    } catch (...) {
        translate_exception();
        return nullptr;
    }
}

namespace detail {

template <Literal L, std::size_t... I>
inline constexpr const Slot* parameter_slots[] = {&string_slot<parameter_name<L, I>>..., nullptr};

template <Literal L>
inline constexpr Binding binding = []<std::size_t... I>(std::index_sequence<I...>) {
    constexpr auto line = signature<L>;
    return Binding{function_name<L>.text, parameter_slots<L, I...>, line.count,       line.positional,
                   line.required,         line.var_positional,      line.var_keywords};
}(std::make_index_sequence<signature<L>.count>{});

template <Literal L, std::size_t I>
Object argument(PyObject* bound) {
    constexpr Parameter parameter = signature<L>.parameters[I];
    if (parameter.kind == Default::required || bound != nullptr) return Object::borrow(bound);
    if constexpr (parameter.kind == Default::integer)
        return to_object(parameter.number);
    else if constexpr (parameter.kind == Default::none)
        return none();
    else
        return to_object(parameter.kind == Default::true_);
}

/// Calls the C++ function with the module, the parameters in order, then `*parts` and `**kwargs` where it has them.
template <Literal L, auto Function>
Object call_bound(Module m, const Arguments& arguments) {
    constexpr auto line = signature<L>;
    std::array<PyObject*, line.count + 1> places;
    PyObject* const* bound = arguments.values;
    if (line.count != line.positional || arguments.positional != line.count || arguments.keywords != nullptr) {
        bind(binding<L>, arguments, places.data());
        bound = places.data();
    }
    return [&]<std::size_t... I>(std::index_sequence<I...>) {
        if constexpr (line.var_positional)
            return Function(m, argument<L, I>(bound[I])..., positional_tuple(arguments));
        else if constexpr (line.var_keywords)
            return Function(m, argument<L, I>(bound[I])..., Keywords{binding<L>, arguments});
        else
            return Function(m, argument<L, I>(bound[I])...);
    }(std::make_index_sequence<line.count>{});
}

template <Literal L, auto Function>
PyObject* trampoline(PyObject* module, PyObject* const* values, Py_ssize_t positional, PyObject* keywords) noexcept {
    const Module m{module};
    const UseNames names{m};
    return guarded(
        [&] { return call_bound<L, Function>(m, {values, static_cast<std::size_t>(positional), keywords}); });
}

/// "name(parameters)", a line "--" and an empty line stand before the docstring, which is where the interpreter reads
/// the signature.
template <Literal L, Literal Doc>
consteval auto documentation() {
    constexpr std::string_view separator = "\n--\n\n";
    char text[L.view().size() + separator.size() + Doc.view().size() + 1]{};
    char* end = std::copy(L.view().begin(), L.view().end(), text);
    end = std::copy(separator.begin(), separator.end(), end);
    std::copy(Doc.view().begin(), Doc.view().end(), end);
    return Literal{text};
}

template <Literal L, Literal Doc>
inline constexpr auto documentation_text = documentation<L, Doc>();

}  // namespace detail

/// The table entry of a function: `def<"name(first, second=None)", function, "Docstring.">()`.
template <Literal L, auto Function, Literal Doc = "">
PyMethodDef def() noexcept {
    return {function_name<L>.text,
            reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(&detail::trampoline<L, Function>)),
            METH_FASTCALL | METH_KEYWORDS, detail::documentation_text<L, Doc>.text};
}

/// `name = function` for each entry of the table, in order.
inline void bind_functions(Module m, PyMethodDef* table) { check(PyModule_AddFunctions(m.ptr(), table)); }

/// The entry as a method for a class: `self` is its first parameter.
inline Object method(Module m, PyMethodDef& entry) {
    const Object function = Object::steal(PyCFunction_NewEx(&entry, m.ptr(), m.get<"__name__">().ptr()));
    return Object::steal(PyInstanceMethod_New(function.ptr()));
}

}  // namespace py
