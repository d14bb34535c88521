/// \file The arguments of a call from Python, and the parameters that they are bound to.
#pragma once

#include "python/containers.hpp"
#include "python/signature.hpp"

namespace py {

/// What the binder needs of a signature while running.
struct ParameterTable : Arity {
    const char* function = nullptr;
    const Name* const* names = nullptr;
};

template <Literal L, std::size_t... I>
inline constexpr const Name* parameter_names[sizeof...(I) + 1] = {&string_name<parameter_name<L, I>>..., nullptr};

template <Literal L>
inline constexpr ParameterTable parameter_table = []<std::size_t... I>(std::index_sequence<I...>) {
    return ParameterTable{static_cast<const Arity&>(signature<L>), function_name<L>.text, parameter_names<L, I...>};
}(std::make_index_sequence<signature<L>.count>{});

/// The arguments of one call as the interpreter passes them: positional values, then those of the keywords.
struct PassedArguments {
    PyObject* const* values;
    std::size_t positional;
    PyObject* keywords;  // a tuple of names, or null
};

/// Puts each argument at the place of its parameter, null where the default applies, and the keywords that are no
/// parameters into the dict. False, with a TypeError set, where they do not match.
[[nodiscard]] bool bind_arguments(const ParameterTable& table, const PassedArguments& passed, PyObject** bound,
                                  const Object& other_keywords);

/// `*parts`
Object var_positional(const PassedArguments& passed);

}  // namespace py
