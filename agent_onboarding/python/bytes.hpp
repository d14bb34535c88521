/// \file Integers as bytes.
#pragma once

#include "python/call.hpp"

namespace py {

/// `x.to_bytes(8, "big")`. The methods of `int` itself cannot be rebound, so a real `int` that fits is asked directly.
Object eight_bytes(const Object& integer);

}  // namespace py
