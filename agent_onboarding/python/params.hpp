/// \file One signature line, such as "login(private_key, bootstrap_runtime=False)", read while compiling: it names the
/// parameters for the binder, its TypeErrors and `inspect.signature`.
#pragma once

#include <array>
#include <iterator>
#include <span>

#include "python/names.hpp"

namespace py {

enum class Default { required, none, true_, false_, integer };

struct Parameter {
    std::size_t begin = 0, end = 0;  // of its name in the line
    Default kind = Default::required;
    long number = 0;  // where the default is an integer
};

template <std::size_t Capacity>
struct SignatureLine {
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
        parameter.kind = Default::none;
    } else if (text == "True") {
        parameter.kind = Default::true_;
    } else if (text == "False") {
        parameter.kind = Default::false_;
    } else {
        parameter.kind = Default::integer;
        for (const char digit : text) {
            if (digit < '0' || digit > '9') throw "a default is None, True, False or a number";
            parameter.number = parameter.number * 10 + (digit - '0');
        }
    }
}

template <Literal L>
constexpr auto read_signature() {
    constexpr std::string_view line = L.view();
    SignatureLine<static_cast<std::size_t>(std::count(line.begin(), line.end(), ',')) + 1> signature;
    signature.name_end = line.find('(');
    bool keyword_only = false;
    std::size_t begin = signature.name_end + 1;
    while (begin < line.size() - 1) {
        const std::size_t end = std::min(line.find(',', begin), line.size() - 1);
        const std::string_view text = trimmed(line.substr(begin, end - begin));
        if (text.starts_with('$')) {
            // the interpreter passes `self` on its own
        } else if (text.starts_with("**")) {
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
            else if (parameter.kind == Default::required)
                throw "a keyword-only parameter has a default";
        }
        begin = end + 1;
    }
    return signature;
}

}  // namespace detail

template <Literal L>
inline constexpr auto signature = detail::read_signature<L>();

template <Literal L>
inline constexpr auto function_name = part<L, 0, signature<L>.name_end>;

template <Literal L, std::size_t I>
inline constexpr auto parameter_name = part<L, signature<L>.parameters[I].begin, signature<L>.parameters[I].end>;

/// What the binder needs of a signature while running.
struct Binding {
    const char* name;
    const Name* const* names;
    std::size_t count, positional, required;
    bool var_positional, var_keywords;
};

/// The arguments of one call as the interpreter passes them: positional values, then those of the keywords.
struct Arguments {
    PyObject* const* values;
    std::size_t positional;
    PyObject* keywords;  // a tuple of names, or null
};

/// Puts each argument at the place of its parameter; null where the default applies. False, with a TypeError set, where
/// they do not match.
[[nodiscard]] bool bind(const Binding& binding, const Arguments& arguments, PyObject** bound);

/// The place of the parameter with this name, or `count` where there is none.
std::size_t parameter_index(const Binding& binding, PyObject* name);

/// `*parts`: the arguments that were passed by position, without a tuple of their own.
class Positional {
public:
    explicit Positional(const Arguments& arguments) noexcept : values_(arguments.values, arguments.positional) {}

    [[nodiscard]] std::span<PyObject* const> values() const noexcept { return values_; }
    [[nodiscard]] Object tuple() const;

private:
    std::span<PyObject* const> values_;
};

/// `separator.join(parts)`
Object join(const Object& separator, const Positional& parts);

/// `**kwargs` in call order, without a dict of its own: `for (const auto& [name, value] : kwargs)`.
class Keywords {
public:
    Keywords(const Binding& binding, const Arguments& arguments) noexcept : binding_(binding), arguments_(arguments) {}

    class Position {
    public:
        Position(const Keywords& all, Py_ssize_t index) : all_(all), index_(all.from(index)) {}
        Position& operator++() {
            index_ = all_.from(index_ + 1);
            return *this;
        }
        std::pair<Object, Object> operator*() const {
            PyObject* const* values = all_.arguments_.values + all_.arguments_.positional;
            return {Object::borrow(all_.name(index_)), Object::borrow(values[index_])};
        }
        bool operator==(std::default_sentinel_t) const noexcept { return index_ == all_.count(); }

    private:
        const Keywords& all_;
        Py_ssize_t index_;
    };

    [[nodiscard]] Position begin() const { return {*this, 0}; }
    [[nodiscard]] static std::default_sentinel_t end() noexcept { return {}; }

private:
    [[nodiscard]] Py_ssize_t count() const noexcept {
        return arguments_.keywords == nullptr ? 0 : PyTuple_GET_SIZE(arguments_.keywords);
    }
    [[nodiscard]] PyObject* name(Py_ssize_t index) const noexcept {
        return PyTuple_GET_ITEM(arguments_.keywords, index);
    }
    /// The next index that is not one of a parameter with a name of its own.
    [[nodiscard]] Py_ssize_t from(Py_ssize_t index) const {
        while (index < count() && parameter_index(binding_, name(index)) != binding_.count) ++index;
        return index;
    }

    const Binding& binding_;
    const Arguments& arguments_;
};

}  // namespace py
