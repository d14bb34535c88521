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

/// "os.path.join" is cut into the segments os, path and join.
template <Literal L>
inline constexpr std::size_t segment_count =
    static_cast<std::size_t>(std::count(L.view().begin(), L.view().end(), '.')) + 1;

template <Literal L, std::size_t I>
inline constexpr std::size_t segment_begin = [] {
    std::size_t begin = 0;
    for (std::size_t i = 0; i < I; ++i) begin = L.view().find('.', begin) + 1;
    return begin;
}();

template <Literal L, std::size_t I>
inline constexpr auto segment =
    part<L, segment_begin<L, I>, std::min(L.view().find('.', segment_begin<L, I>), L.view().size())>;

}  // namespace py
