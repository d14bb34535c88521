/// \file Python exceptions as C++ exceptions, and what Python's `except` and `raise` do with them.
#pragma once

#include "python/call.hpp"

namespace py {

/// Owns a Python exception on its way through C++, so that destructors run with no exception set.
class Error {
public:
    explicit Error(Object exception) noexcept : exception_(std::move(exception)) {}

    [[nodiscard]] const Object& value() const noexcept { return exception_; }

    [[nodiscard]] Object traceback() const;

    /// Hands the exception back to the interpreter.
    void restore() const noexcept { PyErr_SetRaisedException(Py_NewRef(exception_.ptr())); }

private:
    Object exception_;
};

/// Opened first in every handler: until its end the exception is the one being handled, as in an `except` block. New
/// exceptions get it as their context, `sys.exception()` returns it, and no trace of it stays behind.
class Handling {
public:
    explicit Handling(const Error& error) noexcept;
    ~Handling();
    Handling(const Handling&) = delete;
    Handling& operator=(const Handling&) = delete;

    [[nodiscard]] const Object& value() const noexcept { return exception_; }

    /// Whether `except type:` would take it.
    [[nodiscard]] bool caught(PyObject* type) const noexcept;
    [[nodiscard]] bool caught(const Object& type) const;

private:
    Object exception_;
    PyThreadState* thread_;
    _PyErr_StackItem entry_;
};

/// What is thrown for the exception that the interpreter has set, and for an instance or a class of an exception, whose
/// context is the one being handled. Throwing it at once saves a frame: one that a C++ exception passes costs as much as
/// a call of Python.
Error pending();
Error raised(const Object& exception);

/// `raise exception`
[[noreturn]] inline void raise(const Object& exception) { throw raised(exception); }
/// `raise exception from cause`
[[noreturn]] void raise_from(const Object& exception, const Object& cause);

/// `raise Class(…)` for a class of the interpreter.
template <typename... Arguments>
[[noreturn]] void raise(PyObject* type, const Arguments&... arguments) {
    throw raised(call(type, arguments...));
}

/// What a function returns to the interpreter: an object, or word that it has set the exception itself. Returning a
/// refusal takes a fifth of the time of throwing it.
class Outcome {
public:
    // NOLINTNEXTLINE(google-explicit-constructor): what succeeds returns the object
    Outcome(Object value) noexcept : value_(std::move(value)) {}
    /// The interpreter's exception is set.
    static Outcome refusal() noexcept { return Object{}; }

    [[nodiscard]] bool is_refusal() const noexcept { return value_.ptr() == nullptr; }
    [[nodiscard]] const Object& value() const noexcept { return value_; }
    [[nodiscard]] PyObject* release() noexcept { return value_.release(); }

private:
    Object value_;
};

/// `raise exception` and `raise Class(…)`, for `return refused(…)`.
Outcome refused(const Object& exception);
template <typename... Arguments>
Outcome refused(PyObject* type, const Arguments&... arguments) {
    return refused(call(type, arguments...));
}

/// Sets the Python exception for whatever C++ exception is in flight; for the handlers at the border to C.
void translate_exception() noexcept;

}  // namespace py
