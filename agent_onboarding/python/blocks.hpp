/// \file `try`, `finally` and `with` as functions.
///
/// No Python code runs inside a C++ `catch` block: the C++ runtime keeps its caught exceptions for each thread, in order,
/// but calls of one thread may end in any order where something switches their stacks. And what a clean-up raises needs
/// the exception that it interrupts as its context, which a destructor could not give it.
#pragma once

#include <variant>

#include "python/error.hpp"

namespace py {

/// The state of an `except` block: until its end the exception is the one being handled. New exceptions get it as their
/// context, `sys.exception()` returns it, and no trace of it stays behind.
class Handling {
public:
    explicit Handling(Object exception) noexcept;
    ~Handling();
    Handling(const Handling&) = delete;
    Handling& operator=(const Handling&) = delete;

    [[nodiscard]] const Object& value() const noexcept { return exception_; }

    /// Whether `except type:` would take it.
    [[nodiscard]] bool caught(PyObject* type) const noexcept;
    [[nodiscard]] bool caught(const Object& type) const;

    /// `raise` without an exception
    [[noreturn]] void reraise() const { throw Error{exception_}; }

private:
    Object exception_;
    PyThreadState* thread_;
    _PyErr_StackItem entry_;
};

namespace detail {

/// What a body returns: for `return none;`, `return invoke{…};` and the like, an `Object`.
template <typename Body, typename Result = std::invoke_result_t<Body>>
using ResultOf = std::conditional_t<std::convertible_to<Result, Object>, Object, Result>;

/// The result of the body, or the exception that it raised, once the C++ `catch` block is left.
template <typename Body>
std::variant<ResultOf<Body>, Error> attempt(Body body) {
    try {
        return body();
    } catch (Error& error) {
        return std::move(error);
    }
}

}  // namespace detail

/// `try: return body()`, `except BaseException: return handler(except)`. The handler looks at the exception, and
/// re-raises what it does not handle.
template <typename Body, typename Handler>
detail::ResultOf<Body> try_except(Body body, Handler handler) {
    auto outcome = detail::attempt(body);
    if (auto* result = std::get_if<0>(&outcome)) return std::move(*result);
    const Handling except{std::get_if<1>(&outcome)->value()};
    return handler(except);
}

/// `try: return body()`, `except (type, …): return handler(except)`, for classes of the interpreter.
template <typename Body, typename Handler>
detail::ResultOf<Body> try_except(Body body, std::initializer_list<PyObject*> types, Handler handler) {
    return try_except(body, [&](const Handling& except) -> detail::ResultOf<Body> {
        if (std::ranges::none_of(types, [&](PyObject* type) { return except.caught(type); })) except.reraise();
        return handler(except);
    });
}

/// `try: return body()`, `except type: pass`
template <typename Body>
std::optional<Object> suppress(PyObject* type, Body body) {
    return try_except([&] { return std::optional<Object>{body()}; }, {type},
                      [](const Handling&) { return std::optional<Object>{}; });
}

/// `try: return body()`, `finally: cleanup()`
template <typename Body, typename Cleanup>
detail::ResultOf<Body> try_finally(Body body, Cleanup cleanup) {
    auto result = try_except(body, [&](const Handling& except) -> detail::ResultOf<Body> {
        cleanup();
        except.reraise();
    });
    cleanup();
    return result;
}

namespace detail {

/// The `__enter__` and the `__exit__` of a context manager.
std::pair<Object, Object> context_methods(const Object& manager);
/// Whether the context manager swallows the exception.
bool swallows(const Object& exit, const Object& exception);

}  // namespace detail

/// `with manager as value: return body(value)`; None where the manager swallows the exception of the body.
template <typename Body>
Object with(const Object& manager, const Body& body) {
    const auto [enter, exit] = detail::context_methods(manager);
    const Object value = invoke{enter};
    bool is_swallowed = false;
    Object result = try_except([&] { return body(value); },
                               [&, &exit = exit](const Handling& except) -> Object {
                                   is_swallowed = detail::swallows(exit, except.value());
                                   if (!is_swallowed) except.reraise();
                                   return none;
                               });
    if (!is_swallowed) invoke{exit, none, none, none};
    return result;
}

}  // namespace py
