/// \file Names written where they are used: every literal is interned once per module, when it is first used.
#pragma once

#include <atomic>
#include <span>

#include "python/object.hpp"

namespace py {

/// The interned strings of the module whose function runs on this thread.
extern constinit thread_local Object* names_in_use;

/// As many as a module may use.
inline constexpr unsigned name_capacity = 1024;

/// A literal, which has the same place among the names of every module instance.
class Name {
public:
    enum class Kind : unsigned char {
        string,
        tuple,   // of strings, written with commas
        dotted,  // is no object, but has a place where a module remembers its value
    };

    consteval Name(Kind kind, std::string_view text)
        : text_(text.data()),
          size_(static_cast<unsigned short>(text.size())),
          kind_(kind),
          is_special_(text.starts_with("__")) {}
    Name(const Name&) = delete;
    Name& operator=(const Name&) = delete;

    /// 0, where nothing is ever put, before the name was first used in any interpreter.
    [[nodiscard]] unsigned index() const noexcept { return index_.load(std::memory_order_relaxed); }
    /// The place that it takes when it is first used, and keeps.
    [[nodiscard]] unsigned own_index() const;

    [[nodiscard]] const Object& get() const {
        const Object& object = names_in_use[index()];
        if (object.ptr() != nullptr) [[likely]]
            return object;
        return intern();
    }
    [[nodiscard]] PyObject* ptr() const { return get().ptr(); }

    /// Whether it is one of the names that types reserve for themselves.
    [[nodiscard]] bool is_special() const noexcept { return is_special_; }

private:
    [[nodiscard]] std::string_view text() const noexcept { return {text_, size_}; }
    [[nodiscard]] const Object& intern() const;

    const char* text_;
    mutable std::atomic<unsigned> index_ = 0;
    unsigned short size_;
    Kind kind_;
    bool is_special_;
};

template <Literal L>
inline constinit const Name string_name{Name::Kind::string, L.view()};

/// Keyword names as calls want them: "exist_ok" or "invite_code,register_wallet".
template <Literal L>
inline constinit const Name tuple_name{Name::Kind::tuple, L.view()};

inline namespace literals {
/// The interned string of the literal.
template <Literal L>
const Object& operator""_s() {
    return string_name<L>.get();
}
}  // namespace literals

/// A name in the module, "join_path", or in what the module binds, "os.path.join".
struct DottedName {
    const Name* place;        // of the whole
    const Name* attribute;    // its last part
    const DottedName* owner;  // the other parts; null for a name in the module
};

template <Literal L>
inline constinit const Name dotted_place{Name::Kind::dotted, L.view()};

template <Literal L>
inline constexpr DottedName dotted_name = [] {
    if constexpr (segment_count<L> == 1) {
        return DottedName{&string_name<L>, &string_name<L>, nullptr};
    } else {
        constexpr std::size_t dot = L.view().rfind('.');
        return DottedName{&dotted_place<L>, &string_name<part<L, dot + 1, L.view().size()>>,
                          &dotted_name<part<L, 0, dot>>};
    }
}();

/// The names of "os.path.join".
using Path = std::span<const Name* const>;

namespace detail {

template <Literal L, std::size_t... I>
inline constexpr const Name* path_names[sizeof...(I)] = {&string_name<segment<L, I>>...};

template <Literal L, std::size_t... I>
consteval Path make_path(std::index_sequence<I...>) {
    return path_names<L, I...>;
}

}  // namespace detail

template <Literal L>
inline constexpr Path path = detail::make_path<L>(std::make_index_sequence<segment_count<L>>{});

/// Interns the names in "os.close" before there is something to close: by then memory may have run out.
template <Literal... Paths>
void intern() {
    for (const Path names : {path<Paths>...})
        for (const Name* name : names) static_cast<void>(name->get());
}

}  // namespace py
