/// \file Python exceptions as C++ exceptions, and Python's `raise`.
#pragma once

#include "python/call.hpp"

namespace py {

/// Owns a Python exception on its way through C++, so that destructors run with no exception set.
class Error {
public:
    explicit Error(Object exception) noexcept : exception_(std::move(exception)) {}

    [[nodiscard]] const Object& value() const noexcept { return exception_; }
    [[nodiscard]] PyObject* release() noexcept { return exception_.release(); }

private:
    Object exception_;
};

/// The exception that the interpreter has set, taken from it.
Error fetch_error();

/// The exception that `raise exception` would raise: an instance, the handled exception its context.
Error make_error(const Object& exception);

/// `raise exception`. Inline, so that it throws from its caller: each further C++ frame that is unwound costs as much as
/// a Python call.
[[noreturn]] inline void raise(const Object& exception) { throw make_error(exception); }
/// `raise Class(message)` for a class of the interpreter.
[[noreturn]] inline void raise(PyObject* type, const Object& message) { throw make_error(invoke{type, message}); }
/// `raise exception from cause`
[[noreturn]] void raise_from(const Object& exception, const Object& cause);

}  // namespace py
