/// \file One signature line, such as "login(private_key, bootstrap_runtime=False)", read while compiling: it names the
/// parameters for the binder, its TypeErrors and `inspect.signature`.
#pragma once

#include <array>

#include "python/names.hpp"

namespace py {

struct Parameter {
    std::string_view name, default_value;  // no default where it is empty
};

struct Arity {
    std::size_t count = 0;       // of named parameters
    std::size_t positional = 0;  // those that may be passed by position
    std::size_t required = 0;
    bool var_positional = false;  // "*parts"
    bool var_keywords = false;    // "**kwargs"
};

struct Signature : Arity {
    std::string_view function;
    std::array<Parameter, 8> parameters{};
};

namespace detail {

constexpr std::string_view trimmed(std::string_view text) {
    while (text.starts_with(' ')) text.remove_prefix(1);
    return text;
}

/// A default that is a number, which has to be one of those that the interpreter never frees.
constexpr long small_number(std::string_view text) {
    long number = 0;
    for (const char digit : text) {
        if (digit < '0' || digit > '9' || number > 24) throw "a default is None, True, False or a number up to 249";
        number = number * 10 + (digit - '0');
    }
    return number;
}

constexpr Signature parse_signature(std::string_view line) {
    Signature signature{{}, line.substr(0, line.find('('))};
    bool keyword_only = false;
    std::size_t begin = signature.function.size() + 1;
    while (begin < line.size() - 1) {
        const std::size_t end = std::min(line.find(',', begin), line.size() - 1);
        const std::string_view text = trimmed(line.substr(begin, end - begin));
        if (text.starts_with("**")) {
            signature.var_keywords = true;
        } else if (text.starts_with('*')) {
            keyword_only = true;
            signature.var_positional = text.size() > 1;
            if (signature.var_positional && signature.count > 0) throw "*parts stand alone";
        } else {
            const std::size_t equals = std::min(text.find('='), text.size());
            const bool is_required = equals == text.size();
            if (keyword_only && is_required) throw "a keyword-only parameter has a default";
            signature.parameters[signature.count++] = {text.substr(0, equals),
                                                       is_required ? "" : text.substr(equals + 1)};
            signature.required += is_required ? 1 : 0;
            signature.positional += keyword_only ? 0 : 1;
        }
        begin = end + 1;
    }
    return signature;
}

}  // namespace detail

template <Literal L>
inline constexpr Signature signature = detail::parse_signature(L.view());

template <Literal L>
inline constexpr Literal<signature<L>.function.size() + 1> function_name{signature<L>.function};

template <Literal L, std::size_t I>
inline constexpr Literal<signature<L>.parameters[I].name.size() + 1> parameter_name{signature<L>.parameters[I].name};

}  // namespace py
