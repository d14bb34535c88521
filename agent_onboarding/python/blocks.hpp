/// \file `try`, `finally` and `with` as functions: a clean-up may raise, and then has what it interrupts as context.
#pragma once

#include "python/error.hpp"

namespace py {

/// `try: return body()`, `except type: pass`
template <typename Body>
std::optional<Object> suppress(PyObject* type, Body body) {
    try {
        return body();
    } catch (const Error& error) {
        const Handling except{error};
        if (!except.caught(type)) throw;
        return std::nullopt;
    }
}

template <typename Body, typename Cleanup>
auto try_finally(Body body, Cleanup cleanup) {
    auto result = [&] {
        try {
            return body();
        } catch (const Error& error) {
            const Handling except{error};
            cleanup();
            throw;
        }
    }();
    cleanup();
    return result;
}

/// Looks a special method up on the type alone, as the interpreter does for its statements, and binds it. `refusal`
/// is the format of the TypeError for a type without it.
Object special_method(const Object& object, const Object& name, const char* refusal);

/// `with manager as value: return body(value)`; None where the manager swallows the exception of the body.
template <typename Body>
Object with(const Object& manager, const Body& body) {
    const Object enter =
        special_method(manager, "__enter__"_s, "'%.200s' object does not support the context manager protocol");
    const Object exit =
        special_method(manager, "__exit__"_s,
                       "'%.200s' object does not support the context manager protocol (missed __exit__ method)");
    const Object value = enter();
    Object result = none();
    try {
        result = body(value);
    } catch (const Error& error) {
        const Handling except{error};
        if (truth(exit(type_of(error.value()), error.value(), error.traceback()))) return none();
        throw;
    }
    exit(none(), none(), none());
    return result;
}

}  // namespace py
