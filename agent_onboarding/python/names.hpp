/// \file Names written where they are used: every literal is interned once per module, when it is first used.
#pragma once

#include <atomic>
#include <span>

#include "python/object.hpp"

namespace py {

/// The interned strings of the module whose function runs on this thread.
extern constinit thread_local Object* names_in_use;

/// Raises: the table is full.
[[noreturn]] void refuse_place();

/// A place in the table of this capacity that every module instance has, taken when it is first asked for and then kept.
template <unsigned capacity>
class Place {
public:
    /// 0, where nothing is ever put, before the place was taken in any interpreter.
    [[nodiscard]] unsigned index() const noexcept { return index_.load(std::memory_order_relaxed); }
    [[nodiscard]] unsigned own_index() const {
        unsigned index = index_;
        if (index != 0) return index;
        const unsigned next = ++last_index_;
        if (next >= capacity) refuse_place();
        // Another interpreter may be faster.
        return index_.compare_exchange_strong(index, next) ? next : index;
    }

private:
    static constinit inline std::atomic<unsigned> last_index_ = 0;
    mutable std::atomic<unsigned> index_ = 0;
};

/// As many names, and as many of them in its namespace or dotted, as a module may use.
inline constexpr unsigned name_capacity = 768;
inline constexpr unsigned value_capacity = 384;

/// A literal, which has the same place among the names of every module instance.
class Name {
public:
    enum class Kind : unsigned char {
        string,
        tuple,  // of strings, written with commas
    };

    consteval Name(Kind kind, std::string_view text)
        : text_(text.data()),
          size_(static_cast<unsigned short>(text.size())),
          kind_(kind),
          is_special_(text.starts_with("__")) {}
    Name(const Name&) = delete;
    Name& operator=(const Name&) = delete;

    [[nodiscard]] const Object& get() const {
        const Object& object = names_in_use[place_.index()];
        if (object.ptr() != nullptr) [[likely]]
            return object;
        return intern();
    }
    [[nodiscard]] PyObject* ptr() const {
        PyObject* object = names_in_use[place_.index()].ptr();
        return object != nullptr ? object : intern().ptr();
    }

    /// Whether it is one of the names that types reserve for themselves.
    [[nodiscard]] bool is_special() const noexcept { return is_special_; }

private:
    [[nodiscard]] std::string_view text() const noexcept { return {text_, size_}; }
    [[nodiscard]] const Object& intern() const;

    const char* text_;
    Place<name_capacity> place_;
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

/// A name in the module, "join_path", or in what the module binds, "os.path.join", with the place where a module
/// remembers its value.
struct DottedName {
    const Name& attribute;    // its last part
    const DottedName* owner;  // the other parts; null for a name in the module
    Place<value_capacity> place{};
};

template <Literal L>
constexpr const DottedName* owner_name() noexcept;

template <Literal L>
inline constinit const DottedName dotted_name{string_name<segment<L, segment_count<L> - 1>>, owner_name<L>()};

template <Literal L>
constexpr const DottedName* owner_name() noexcept {
    if constexpr (segment_count<L> == 1)
        return nullptr;
    else
        return &dotted_name<part<L, 0, L.view().rfind('.')>>;
}

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
