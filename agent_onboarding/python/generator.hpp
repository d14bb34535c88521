/// \file Generators: nothing runs before the first `next`, and after the end or an exception they are exhausted.
#pragma once

#include "python/module.hpp"

namespace py {

/// The two halves of a generator function: `begin(m, argument)` runs at the first `next` and makes an iterator of the
/// argument, `step(m, iterator)` returns the next item, or nothing at the end.
struct GeneratorBody {
    Object (*begin)(Module m, const Object& argument);
    std::optional<Object> (*step)(Module m, const Object& iterator);
};

/// A generator that runs the body, which lives as long as the program.
Object generator(Module m, const GeneratorBody& body, const Object& argument);

}  // namespace py
