/// \file The salt that tells eras apart, for the legacy core module.
#include "runtime/identity_salt.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

void require_positive_integer(const Object& value, const Object& name) {
    if (!value.is_int()) raise(PyExc_TypeError, fstring<"{} must be an integer, got {}">{name, type_name(value)});
    if (value <= 0) raise(PyExc_ValueError, fstring<"{} must be positive, got {}">{name, value});
}

/// `value.to_bytes(8, "big")` of a positive integer.
Object eight_bytes(const Object& value) {
    const auto number = small_int(value);
    if (!number.has_value()) return value.call<"to_bytes">(8, "big"_s);
    const auto bits = static_cast<unsigned long long>(*number);
    char text[8];
    for (unsigned i = 0; i < sizeof text; ++i) text[i] = static_cast<char>(bits >> (56 - 8 * i));
    return bytes({text, sizeof text});
}

Object era_number_identity_salt(Module, const Object& market_id, const Object& era_number) {
    require_positive_integer(market_id, "market_id"_s);
    require_positive_integer(era_number, "era_number"_s);
    const Object market_bytes = eight_bytes(market_id);
    return market_bytes + eight_bytes(era_number);
}

}  // namespace

PyMethodDef identity_salt_entry = def<"era_number_identity_salt(market_id, era_number)", era_number_identity_salt>();
PyMethodDef salt_entry = def<"era_salt(market_id, era_number)", era_number_identity_salt>();

}  // namespace agent_onboarding
