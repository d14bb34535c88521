/// \file The owned reference that everything above the C interface is written with.
///
/// Rules of use:
/// - An `Object` always refers to an object. Null from the interpreter becomes a C++ exception that owns the Python
///   one, in `steal` and `borrow`, the only two ways in.
/// - None, falsy and missing are three things: `x.is_none()`, `truth(x)`, and `std::optional<Object>`.
/// - C++ does not order the arguments of a call as Python does: at most one of them may have an effect. `f(x)` on an
///   object, `m.get<"os.path.join">()(x)`, looks the callee up before its arguments are evaluated.
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

class Object {
public:
    /// A place that nothing was put into yet; only for storage.
    Object() noexcept : pointer_(nullptr) {}
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

    Object(const Object& other) noexcept : pointer_(Py_XNewRef(other.pointer_)) {}
    Object(Object&& other) noexcept : pointer_(std::exchange(other.pointer_, nullptr)) {}
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
    /// A `str` and not a subclass of it, whose methods and comparisons cannot be overridden.
    [[nodiscard]] bool is_plain_str() const noexcept { return PyUnicode_CheckExact(pointer_) != 0; }

    /// `x.a.b`
    template <Literal L>
    [[nodiscard]] Object get() const;
    /// The attribute, where there is one.
    template <Literal L>
    [[nodiscard]] std::optional<Object> find() const;
    /// `x.a = value`, `setattr(x, name, value)`
    template <Literal L, typename Value>
    void set(const Value& value) const;
    void set(const Object& name, const Object& value) const {
        check(PyObject_SetAttr(pointer_, name.pointer_, value.pointer_));
    }

    /// `del x.a`
    template <Literal L>
    void remove() const;

    /// `x(…)` and `x.method(…)`, with `kw<"name">(value)` behind the positional arguments.
    template <typename... Arguments>
    Object operator()(const Arguments&... arguments) const;
    template <Literal L, typename... Arguments>
    Object call(const Arguments&... arguments) const;

    /// `x["key"]`, `x[key]`
    template <Literal L>
    [[nodiscard]] Object item() const;
    [[nodiscard]] Object item(const Object& key) const {
        return Object::steal(PyObject_GetItem(pointer_, key.pointer_));
    }
    template <Literal L, typename Value>
    void set_item(const Value& value) const;
    void set_item(const Object& key, const Object& value) const {
        check(PyObject_SetItem(pointer_, key.pointer_, value.pointer_));
    }
    /// `del x[key]`
    void remove_item(const Object& key) const { check(PyObject_DelItem(pointer_, key.pointer_)); }
    /// `x.get(key)`, `x.get("key")`, `x.get("key", default)`
    [[nodiscard]] Object lookup(const Object& key) const;
    template <Literal L>
    [[nodiscard]] Object lookup() const;
    template <Literal L, typename Default>
    [[nodiscard]] Object lookup(const Default& otherwise) const;
    /// The same with a default that is made where it is asked for.
    template <Literal L>
    [[nodiscard]] Object lookup(Object make_default()) const;

private:
    friend class Borrowed;
    explicit Object(PyObject* pointer) noexcept : pointer_(pointer) {}

    PyObject* pointer_;
};

/// An object that somebody else keeps alive while it is used, as a caller does with its arguments. Taking a reference
/// and dropping it again within a few instructions would stall the processor for longer than a short function runs.
class Borrowed {
public:
    explicit Borrowed(PyObject* pointer) noexcept : object_(pointer) {}
    ~Borrowed() { static_cast<void>(object_.release()); }
    Borrowed(const Borrowed&) = delete;
    Borrowed& operator=(const Borrowed&) = delete;

    // NOLINTNEXTLINE(google-explicit-constructor): it stands in for the object
    operator const Object&() const noexcept { return object_; }

private:
    Object object_;
};

inline Object none() { return Object::borrow(Py_None); }

/// What a call may be given as it is.
inline const Object& to_object(const Object& object) noexcept { return object; }
inline Object to_object(PyObject* builtin) { return Object::borrow(builtin); }
inline Object to_object(std::same_as<bool> auto value) { return Object::borrow(value ? Py_True : Py_False); }
template <std::signed_integral Value>
Object to_object(Value value) {
    return Object::steal(PyLong_FromLongLong(value));
}

inline bool truth(const Object& object) { return check(PyObject_IsTrue(object.ptr())) != 0; }
inline bool is_instance(const Object& object, const Object& type) {
    return check(PyObject_IsInstance(object.ptr(), type.ptr())) != 0;
}
inline bool contains(const Object& container, const Object& value) {
    return check(PySequence_Contains(container.ptr(), value.ptr())) != 0;
}

/// `truth(left OP right)` for the six comparisons (Py_EQ, Py_LT, …).
inline bool compare(const Object& left, int operation, const Object& right) {
    return truth(Object::steal(PyObject_RichCompare(left.ptr(), right.ptr(), operation)));
}

inline bool are_strings(const Object& left, const Object& right) noexcept {
    return left.is_plain_str() && right.is_plain_str();
}
inline bool same_text(const Object& left, const Object& right) noexcept {
    return left.is(right) || (PyUnicode_GET_LENGTH(left.ptr()) == PyUnicode_GET_LENGTH(right.ptr()) &&
                              PyUnicode_Compare(left.ptr(), right.ptr()) == 0);
}
inline bool operator==(const Object& left, const Object& right) {
    return are_strings(left, right) ? same_text(left, right) : compare(left, Py_EQ, right);
}
inline bool operator!=(const Object& left, const Object& right) {
    return are_strings(left, right) ? !same_text(left, right) : compare(left, Py_NE, right);
}

inline Object operator|(const Object& left, const Object& right) {
    return Object::steal(PyNumber_Or(left.ptr(), right.ptr()));
}
inline Object& operator|=(Object& left, const Object& right) {
    return left = Object::steal(PyNumber_InPlaceOr(left.ptr(), right.ptr()));
}
inline Object operator&(const Object& left, const Object& right) {
    return Object::steal(PyNumber_And(left.ptr(), right.ptr()));
}
inline Object operator+(const Object& left, const Object& right) {
    if (are_strings(left, right)) return Object::steal(PyUnicode_Concat(left.ptr(), right.ptr()));
    return Object::steal(PyNumber_Add(left.ptr(), right.ptr()));
}

/// A type of the interpreter, `type(PyUnicode_Type)`, and the type of an object.
inline Object type(PyTypeObject& builtin) { return Object::borrow(reinterpret_cast<PyObject*>(&builtin)); }
inline Object type_of(const Object& object) { return type(*Py_TYPE(object.ptr())); }

/// `int(x)`
inline Object as_int(const Object& value) { return Object::steal(PyNumber_Long(value.ptr())); }

}  // namespace py
