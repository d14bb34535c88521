/// \file Integers as bytes.
#pragma once

#include "python/call.hpp"

namespace py {

/// `x.to_bytes(8, "big") + y.to_bytes(8, "big")`. The methods of `int` itself cannot be rebound, so real integers that
/// fit are asked directly.
Object eight_bytes_each(const Object& x, const Object& y);

}  // namespace py
