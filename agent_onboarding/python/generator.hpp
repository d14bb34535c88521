/// \file Lazy iterators: nothing runs before the first `next`, and after the end or an exception they are exhausted.
#pragma once

#include "python/function.hpp"

namespace py {

namespace detail {

/// An iterator object between two items. It holds the argument before its first step, then what `Begin` made of it.
struct Generator {
    enum class Stage { created, suspended, running, exhausted };

    PyObject ob_base;
    Object module, held;
    Object (*resume)(Module m, Generator& generator);
    Stage stage;

    /// Returns the item of the next step, or an empty place at the end.
    static PyObject* next(PyObject* self) noexcept;
    void finish() {
        stage = Stage::exhausted;
        held = Object{};
    }
};

Object make_generator(Module m, const Object& argument, Object (*resume)(Module, Generator&));

template <auto Begin, auto Next>
Object resume(Module m, Generator& generator) {
    if (generator.stage == Generator::Stage::exhausted) return {};
    if (generator.stage == Generator::Stage::running) raise(PyExc_ValueError, "generator already executing"_s);
    try {
        const bool is_first = std::exchange(generator.stage, Generator::Stage::running) == Generator::Stage::created;
        if (is_first) generator.held = Begin(m, generator.held);
        if (std::optional<Object> item = Next(m, generator.held)) {
            generator.stage = Generator::Stage::suspended;
            return *std::move(item);
        }
    } catch (const Error& error) {
        const Handling except{error};
        generator.finish();
        // Passed on as it is, it would look like the end.
        if (except.caught(PyExc_StopIteration))
            raise_from(call(PyExc_RuntimeError, "generator raised StopIteration"_s), except.value());
        throw;
    }
    generator.finish();
    return {};
}

}  // namespace detail

/// An iterator over what `Next(m, iterator)` returns until it returns nothing, where `iterator` is the result of
/// `Begin(m, argument)`, called by the first `next`.
template <auto Begin, auto Next>
Object generator(Module m, const Object& argument) {
    return detail::make_generator(m, argument, detail::resume<Begin, Next>);
}

}  // namespace py
