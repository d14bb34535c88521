/// \file The owned reference that everything above the C interface is written with.
///
/// Rules of use:
/// - An `Object` always refers to an object. Null from the interpreter becomes a C++ exception that owns the Python
///   one, in `steal` and `borrow`, the only two ways in; only the trampoline looks `at` arguments where they lie.
/// - None, falsy and missing are three things: `x.is_none()`, `truth(x)`, and `std::optional<Object>`.
/// - What Python evaluates in order is written in braces, which C++ evaluates in order: `invoke{callee, arguments…}`,
///   `fstring<"…">{…}`, `tuple{…}`. Parentheses take only arguments that are there already, so that their order cannot
///   be told; a call among them does not compile.
#pragma once

#include <Python.h>

#include <concepts>
#include <optional>
#include <utility>

#include "python/literal.hpp"

namespace py {

/// Throws the exception that the interpreter has set.
[[noreturn]] void throw_pending();

/// For interpreter calls that answer with a negative number when they fail.
template <std::signed_integral Status>
Status check(Status status) {
    if (status < 0) throw_pending();
    return status;
}

/// `None`, and a `{}` that is made where it is needed.
struct None {};
inline constexpr None none;
struct EmptyDict {};
inline constexpr EmptyDict empty_dict;

/// Whether an argument is there already, so that evaluating it has no effect: anything that has a name, and numbers.
template <typename Argument>
inline constexpr bool is_value =
    std::is_lvalue_reference_v<Argument> || std::is_arithmetic_v<Argument> || std::same_as<Argument, None>;
template <typename Argument>
concept Value = is_value<Argument>;

class Object {
public:
    /// An empty handle, for storage that is filled later.
    Object() noexcept : pointer_(nullptr) {}
    // NOLINTNEXTLINE(google-explicit-constructor): `return none;`
    Object(None) noexcept : pointer_(Py_NewRef(Py_None)) {}
    /// Takes over a new reference.
    static Object steal(PyObject* pointer) {
        if (pointer == nullptr) throw_pending();
        return Object{pointer};
    }
    /// Adds a reference to one that somebody else holds.
    static Object borrow(PyObject* pointer) {
        if (pointer == nullptr) throw_pending();
        return Object{Py_NewRef(pointer)};
    }

    /// The reference in somebody else's array, which outlives the use.
    static const Object& at(PyObject* const& place) noexcept { return reinterpret_cast<const Object&>(place); }

    Object(const Object& other) noexcept : pointer_(Py_XNewRef(other.pointer_)) {}
    Object(Object&& other) noexcept : pointer_(other.release()) {}
    Object& operator=(Object other) noexcept {
        std::swap(pointer_, other.pointer_);
        return *this;
    }
    ~Object() { Py_XDECREF(pointer_); }

    explicit operator bool() const = delete;

    [[nodiscard]] PyObject* ptr() const noexcept { return pointer_; }
    [[nodiscard]] PyObject* release() noexcept { return std::exchange(pointer_, nullptr); }

    [[nodiscard]] bool is(const Object& other) const noexcept { return pointer_ == other.pointer_; }
    [[nodiscard]] bool is_none() const noexcept { return Py_IsNone(pointer_) != 0; }
    [[nodiscard]] bool is_dict() const noexcept { return PyDict_Check(pointer_) != 0; }
    [[nodiscard]] bool is_list() const noexcept { return PyList_Check(pointer_) != 0; }
    [[nodiscard]] bool is_tuple() const noexcept { return PyTuple_Check(pointer_) != 0; }
    [[nodiscard]] bool is_int() const noexcept { return PyLong_Check(pointer_) != 0; }
    /// Exact types, no subclasses: nobody can override their methods, so the interpreter may be asked directly.
    [[nodiscard]] bool is_exact_str() const noexcept { return PyUnicode_CheckExact(pointer_) != 0; }
    [[nodiscard]] bool is_exact_int() const noexcept { return PyLong_CheckExact(pointer_) != 0; }
    [[nodiscard]] bool is_exact_dict() const noexcept { return PyDict_CheckExact(pointer_) != 0; }
    [[nodiscard]] bool is_exact_list() const noexcept { return PyList_CheckExact(pointer_) != 0; }

    /// `x.a`, `x.a.b`
    template <Literal L>
    [[nodiscard]] Object attr() const;
    /// The attribute, where there is one.
    [[nodiscard]] std::optional<Object> find_attr(const Object& name) const;
    template <Literal L>
    [[nodiscard]] std::optional<Object> find_attr() const;
    /// `x.a = value`, `setattr(x, name, value)`, `del x.a`
    template <Literal L, typename Item>
    void set_attr(const Item& value) const;
    void set_attr(const Object& name, const Object& value) const {
        check(PyObject_SetAttr(pointer_, name.pointer_, value.pointer_));
    }
    template <Literal L>
    void del_attr() const;

    /// `x.method(…)`, with `kw<"name">(value)` behind the positional arguments.
    template <Literal L, Value... Arguments>
    Object call(Arguments&&... arguments) const;

    /// `x["key"]`, `x[key]`
    template <Literal L>
    [[nodiscard]] Object item() const;
    [[nodiscard]] Object item(const Object& key) const {
        return Object::steal(PyObject_GetItem(pointer_, key.pointer_));
    }
    /// `x["key"] = value`, `x[key] = value`, `del x[key]`
    template <Literal L, typename Item>
    void set_item(const Item& value) const;
    void set_item(const Object& key, const Object& value) const {
        const auto set = is_exact_dict() ? PyDict_SetItem : PyObject_SetItem;
        check(set(pointer_, key.pointer_, value.pointer_));
    }
    void del_item(const Object& key) const { check(PyObject_DelItem(pointer_, key.pointer_)); }

    /// `x.get(key)`, `x.get("key")`, `x.get("key", default)`
    [[nodiscard]] Object get(const Object& key) const;
    template <Literal L>
    [[nodiscard]] Object get() const;
    template <Literal L, typename Default>
    [[nodiscard]] Object get(const Default& otherwise) const;

private:
    explicit Object(PyObject* pointer) noexcept : pointer_(pointer) {}

    PyObject* pointer_;
};

static_assert(sizeof(Object) == sizeof(PyObject*) && std::is_standard_layout_v<Object>);  // for `Object::at`

/// Conversion of arguments: an `Object` stays as it is; a pointer to a built-in, a bool and a signed integer become one.
inline const Object& to_object(const Object& object) noexcept { return object; }
inline Object to_object(None) noexcept { return none; }
inline Object to_object(EmptyDict) { return Object::steal(PyDict_New()); }
inline Object to_object(PyObject* builtin) { return Object::borrow(builtin); }
inline Object to_object(std::same_as<bool> auto value) { return Object::borrow(value ? Py_True : Py_False); }
template <std::signed_integral Number>
Object to_object(Number value) {
    return Object::steal(PyLong_FromLongLong(value));
}

inline bool truth(const Object& object) {
    if (object.is_exact_str()) return PyUnicode_GET_LENGTH(object.ptr()) != 0;
    return check(PyObject_IsTrue(object.ptr())) != 0;
}
inline bool is_instance(const Object& object, const Object& type) {
    return check(PyObject_IsInstance(object.ptr(), type.ptr())) != 0;
}
inline bool contains(const Object& container, const Object& value) {
    return check(PySequence_Contains(container.ptr(), value.ptr())) != 0;
}

namespace detail {
/// `string[index:].startswith(part)` of exact strings
bool stands_at(Py_ssize_t index, const Object& string, const Object& part) noexcept;
}  // namespace detail

/// `truth(left OP right)` for the six comparisons (Py_EQ, Py_LT, …).
inline bool compare(const Object& left, int operation, const Object& right) {
    return truth(Object::steal(PyObject_RichCompare(left.ptr(), right.ptr(), operation)));
}
/// The value of an exact int, where it fits.
inline std::optional<long long> small_int(const Object& object) {
    int overflow = 1;
    const long long value = object.is_exact_int() ? PyLong_AsLongLongAndOverflow(object.ptr(), &overflow) : 0;
    return overflow == 0 ? std::optional{value} : std::nullopt;
}
inline bool operator<=(const Object& left, long long right) {
    const auto number = small_int(left);
    return number.has_value() ? *number <= right : compare(left, Py_LE, to_object(right));
}
inline bool operator==(const Object& left, const Object& right) {
    if (left.is_exact_str() && right.is_exact_str())
        return left.is(right) || (PyUnicode_GET_LENGTH(left.ptr()) == PyUnicode_GET_LENGTH(right.ptr()) &&
                                  detail::stands_at(0, left, right));
    return compare(left, Py_EQ, right);
}
inline bool operator!=(const Object& left, const Object& right) {
    if (left.is_exact_str() && right.is_exact_str()) return !(left == right);
    return compare(left, Py_NE, right);
}

inline Object operator|(const Object& left, const Object& right) {
    return Object::steal(PyNumber_Or(left.ptr(), right.ptr()));
}
inline Object operator&(const Object& left, const Object& right) {
    return Object::steal(PyNumber_And(left.ptr(), right.ptr()));
}
inline Object operator+(const Object& left, const Object& right) {
    if (left.is_exact_str() && right.is_exact_str()) return Object::steal(PyUnicode_Concat(left.ptr(), right.ptr()));
    return Object::steal(PyNumber_Add(left.ptr(), right.ptr()));
}

// C++ may evaluate either operand first.
bool operator==(Object&& left, Object&& right) = delete;
bool operator!=(Object&& left, Object&& right) = delete;
Object operator|(Object&& left, Object&& right) = delete;
Object operator&(Object&& left, Object&& right) = delete;
Object operator+(Object&& left, Object&& right) = delete;

/// A type of the interpreter, `type(PyUnicode_Type)`, and the type of an object.
inline Object type(PyTypeObject& builtin) { return Object::borrow(reinterpret_cast<PyObject*>(&builtin)); }
inline Object type_of(const Object& object) { return type(*Py_TYPE(object.ptr())); }

/// `int(x)`
inline Object as_int(const Object& value) { return Object::steal(PyNumber_Long(value.ptr())); }

}  // namespace py
