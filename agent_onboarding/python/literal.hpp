/// \file Texts as template arguments, cut while compiling.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace py {

template <std::size_t N>
struct Literal {
    char text[N]{};

    consteval Literal(const char (&source)[N]) { std::copy_n(source, N, text); }
    consteval explicit Literal(std::string_view source) { std::copy_n(source.begin(), N - 1, text); }

    [[nodiscard]] constexpr std::string_view view() const { return {text, N - 1}; }
};

/// The characters [From, To) of a literal as a literal.
template <Literal L, std::size_t From, std::size_t To>
inline constexpr Literal<To - From + 1> part{L.view().substr(From, To - From)};

/// "os.path.join" is cut at its last dot into the parent os.path and the name join; "os" is a name without a parent.
template <Literal L>
inline constexpr std::size_t last_dot = L.view().rfind('.');
template <Literal L>
inline constexpr bool is_dotted = last_dot<L> != std::string_view::npos;
template <Literal L>
inline constexpr auto parent = part<L, 0, last_dot<L>>;
template <Literal L>
inline constexpr auto last_name = part<L, last_dot<L> + 1, L.view().size()>;

}  // namespace py
