/// \file Names written where they are used: every literal is interned once per module.
///
/// `"encoding"_s` and the dotted names of `get<"os.path.join">()` reserve a slot while the library is loaded; each
/// module instance interns the text of every slot when it is initialised, and a running function finds the strings of
/// its own module through `names_in_use`.
#pragma once

#include <Python.h>

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace py {

/// A text as a template argument.
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

template <Literal L>
inline constexpr bool is_dotted = L.view().find('.') != std::string_view::npos;

/// `os.path.join` has the head `os`, the tail `path.join`, the owner `os.path` and the member `join`.
template <Literal L>
inline constexpr auto head = part<L, 0, L.view().find('.')>;
template <Literal L>
inline constexpr auto tail = part<L, L.view().find('.') + 1, L.view().size()>;
template <Literal L>
inline constexpr auto owner = part<L, 0, L.view().rfind('.')>;
template <Literal L>
inline constexpr auto member = part<L, L.view().rfind('.') + 1, L.view().size()>;

/// The place of one interned string, or of one tuple of them (keyword names), in a module's state.
class Slot {
public:
    enum class Kind { string, tuple };

    Slot(Kind kind, const char* text) noexcept : kind_(kind), text_(text), next_(first_), index_(count_++) {
        first_ = this;
    }
    Slot(const Slot&) = delete;
    Slot& operator=(const Slot&) = delete;

    [[nodiscard]] std::size_t index() const noexcept { return index_; }
    static std::size_t count() noexcept { return count_; }

    /// Fills `names` with a new reference for every slot; false with an exception set when one fails.
    static bool intern_all(PyObject** names) noexcept;
    static void release_all(PyObject** names) noexcept;

private:
    [[nodiscard]] PyObject* make() const noexcept;

    static inline constinit Slot* first_ = nullptr;
    static inline constinit std::size_t count_ = 0;

    Kind kind_;
    const char* text_;
    Slot* next_;
    std::size_t index_;
};

template <Literal L>
inline const Slot string_slot{Slot::Kind::string, L.text};

/// Keyword names as calls want them: "exist_ok" or "invite_code,register_wallet".
template <Literal L>
inline const Slot tuple_slot{Slot::Kind::tuple, L.text};

/// The strings of the module whose function runs on this thread.
extern constinit thread_local PyObject* const* names_in_use;

/// The interned string of a literal, borrowed from the module's state.
template <Literal L>
PyObject* interned() noexcept {
    return names_in_use[string_slot<L>.index()];
}

}  // namespace py
