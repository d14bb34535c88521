/// \file The functions of the legacy core module.
#pragma once

#include "parts.hpp"

namespace agent_onboarding {

extern PyMethodDef identity_salt_entry;
extern PyMethodDef salt_entry;

}  // namespace agent_onboarding
