/// \file Names written where they are used: every literal is interned once per module, at its first use.
#pragma once

#include <atomic>
#include <span>

#include "python/object.hpp"

namespace py {

/// The interned strings of the module whose function runs on this thread; the first place stays empty.
extern constinit thread_local Object* names_in_use;

/// As many as a module may have.
inline constexpr unsigned name_capacity = 1024;

/// A literal, which has the same place among the names of every module instance.
class Name {
public:
    enum class Kind { string, tuple };  // a tuple of strings is written with commas

    constexpr Name(Kind kind, std::string_view text) noexcept : kind_(kind), text_(text) {}
    Name(const Name&) = delete;
    Name& operator=(const Name&) = delete;

    /// 0 before its first use.
    [[nodiscard]] unsigned index() const noexcept { return index_.load(std::memory_order_relaxed); }
    [[nodiscard]] const Object& get() {
        const Object& name = names_in_use[index()];
        return name.ptr() != nullptr ? name : intern();
    }
    [[nodiscard]] PyObject* ptr() { return get().ptr(); }

    /// Whether it is one of the names that types reserve for themselves.
    [[nodiscard]] bool is_special() const noexcept { return text_.starts_with("__"); }

private:
    const Object& intern();

    Kind kind_;
    std::string_view text_;
    std::atomic<unsigned> index_{0};
};

template <Literal L>
inline constinit Name string_name{Name::Kind::string, L.view()};

/// Keyword names as calls want them: "exist_ok" or "invite_code,register_wallet".
template <Literal L>
inline constinit Name tuple_name{Name::Kind::tuple, L.view()};

inline namespace literals {
/// The interned string of the literal.
template <Literal L>
const Object& operator""_s() {
    return string_name<L>.get();
}
}  // namespace literals

/// The names of "os.path.join".
using Path = std::span<Name* const>;

namespace detail {

template <Literal L, std::size_t... I>
inline constexpr Name* path_names[sizeof...(I)] = {&string_name<segment<L, I>>...};

template <Literal L, std::size_t... I>
consteval Path make_path(std::index_sequence<I...>) {
    return path_names<L, I...>;
}

}  // namespace detail

template <Literal L>
inline constexpr Path path = detail::make_path<L>(std::make_index_sequence<segment_count<L>>{});

}  // namespace py
