/// \file One signature line, such as "login(private_key, bootstrap_runtime=False)", read while compiling: it names the
/// parameters for the binder, its TypeErrors and `inspect.signature`.
#pragma once

#include <array>

#include "python/names.hpp"

namespace py {

enum class DefaultValue { absent, none_, true_, false_, integer };

struct Parameter {
    std::size_t begin = 0, end = 0;  // of its name in the line
    DefaultValue default_value = DefaultValue::absent;
    long number = 0;  // where the default is an integer
};

template <std::size_t Capacity>
struct ParsedSignature {
    std::size_t name_end = 0;
    std::array<Parameter, Capacity> parameters{};
    std::size_t count = 0;       // of named parameters
    std::size_t positional = 0;  // those that may be passed by position
    std::size_t required = 0;
    bool var_positional = false;  // "*parts"
    bool var_keywords = false;    // "**kwargs"
};

namespace detail {

constexpr std::string_view trimmed(std::string_view text) {
    while (text.starts_with(' ')) text.remove_prefix(1);
    return text;
}

constexpr void read_default(Parameter& parameter, std::string_view text) {
    if (text == "None") {
        parameter.default_value = DefaultValue::none_;
    } else if (text == "True") {
        parameter.default_value = DefaultValue::true_;
    } else if (text == "False") {
        parameter.default_value = DefaultValue::false_;
    } else {
        parameter.default_value = DefaultValue::integer;
        for (const char digit : text) {
            if (digit < '0' || digit > '9') throw "a default is None, True, False or a number";
            parameter.number = parameter.number * 10 + (digit - '0');
        }
        if (parameter.number > 256) throw "only small integers are immortal";
    }
}

template <Literal L>
constexpr auto parse_signature() {
    constexpr std::string_view line = L.view();
    ParsedSignature<static_cast<std::size_t>(std::count(line.begin(), line.end(), ',')) + 1> signature;
    signature.name_end = line.find('(');
    bool keyword_only = false;
    std::size_t begin = signature.name_end + 1;
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
            Parameter& parameter = signature.parameters[signature.count++];
            parameter.begin = end - text.size();
            parameter.end = parameter.begin + std::min(text.find('='), text.size());
            if (const std::size_t equals = text.find('='); equals != std::string_view::npos)
                read_default(parameter, text.substr(equals + 1));
            else
                ++signature.required;
            if (!keyword_only)
                ++signature.positional;
            else if (parameter.default_value == DefaultValue::absent)
                throw "a keyword-only parameter has a default";
        }
        begin = end + 1;
    }
    return signature;
}

}  // namespace detail

template <Literal L>
inline constexpr auto signature = detail::parse_signature<L>();

template <Literal L>
inline constexpr auto function_name = part<L, 0, signature<L>.name_end>;

template <Literal L, std::size_t I>
inline constexpr auto parameter_name = part<L, signature<L>.parameters[I].begin, signature<L>.parameters[I].end>;

}  // namespace py
