/// \file Names written where they are used: every literal is interned once per interpreter, when it is first used.
#pragma once

#include <atomic>
#include <cstdint>

#include "python/object.hpp"

namespace py {

/// How many different literals the sources may use. One more raises SystemError.
inline constexpr unsigned name_capacity = 768;

/// The interned strings of one interpreter, by slot. The modules that it has imported keep it alive, which is one, or
/// several where imports failed and somebody still refers to the modules that they left.
class NameTable {
public:
    explicit NameTable(std::int64_t interpreter) noexcept : interpreter_(interpreter) {}

    /// That of the interpreter that runs, for one of its modules, as long as the module lives.
    static NameTable* acquire();
    void release() noexcept;

    /// That of the interpreter that runs, which one of its modules has acquired.
    static NameTable& running() noexcept {
        NameTable* only = only_.load(std::memory_order_acquire);
        return only != nullptr ? *only : find_running();
    }

    [[nodiscard]] Object& operator[](unsigned slot) noexcept { return slots_[slot]; }

private:
    /// The table of the one interpreter that has imported the module; null while there are several, or none.
    static constinit inline std::atomic<NameTable*> only_ = nullptr;
    static NameTable* find(std::int64_t interpreter) noexcept;
    [[gnu::cold, gnu::noinline]] static NameTable& find_running() noexcept;

    std::int64_t interpreter_;  // its id: an address may come again
    unsigned users_ = 0;
    NameTable* next_ = nullptr;
    Object slots_[name_capacity];
};

/// A literal, which has the same slot in every table. Its text lies right behind it: a pointer to it would have to be
/// relocated when the module is loaded, as many times as there are names.
class Name {
public:
    consteval explicit Name(std::size_t size) : size_(static_cast<unsigned short>(size)) {}
    Name(const Name&) = delete;
    Name& operator=(const Name&) = delete;

    [[nodiscard]] const Object& get() const {
        NameTable& names = NameTable::running();
        // Slot 0 stays empty: it is that of a literal that was used in no interpreter yet.
        const Object& object = names[slot_.load(std::memory_order_relaxed)];
        return object.ptr() != nullptr ? object : intern(names);
    }

    /// What a namespace binds to the name, a new reference; null where it does not bind it. Namespaces grow, but seldom
    /// change their order, so that the entry which had the name the last time is looked at first.
    [[nodiscard]] PyObject* find_in(PyObject* dict) const;

private:
    [[nodiscard]] std::string_view text() const noexcept { return {reinterpret_cast<const char*>(this + 1), size_}; }
    [[nodiscard]] unsigned short assign_slot() const;
    [[nodiscard]] const Object& intern(NameTable& names) const;
    [[nodiscard, gnu::noinline]] PyObject* search(PyObject* dict, PyObject* key) const;

    mutable std::atomic<unsigned short> slot_ = 0;
    mutable std::atomic<unsigned short> position_ = 0;  // for PyDict_Next; 0 before the first look-up
    unsigned short size_;
};

namespace detail {

template <Literal L>
struct NameWithText {
    consteval NameWithText() : name{L.view().size()}, text{L} {}

    Name name;
    decltype(L) text;
};

template <Literal L>
inline constinit const NameWithText<L> name_with_text;  // NOLINT(modernize-avoid-c-style-cast): there is none

}  // namespace detail

template <Literal L>
inline constexpr const Name& string_name = detail::name_with_text<L>.name;

inline namespace literals {
/// The interned string of the literal.
template <Literal L>
const Object& operator""_s() {
    return string_name<L>.get();
}
}  // namespace literals

/// Interns the names in "os.close" before they are needed where a lack of memory could not be reported.
template <Literal... Paths>
void preload_names() {
    (static_cast<void>(string_name<last_name<Paths>>.get()), ...);
    (
        [] {
            if constexpr (is_dotted<Paths>) preload_names<parent<Paths>>();
        }(),
        ...);
}

}  // namespace py
