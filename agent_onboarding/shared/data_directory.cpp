/// \file Where the agent's files lie.
#include "parts.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

Object canonical_data_dir(Module m, const Object& data_dir) {
    return str(m.call<"resolve_data_dir">(data_dir, kw<"ensure">(false)));
}

}  // namespace

PyMethodDef functions::data_directory[] = {
    def<"_canonical_data_dir(data_dir)", canonical_data_dir, "Return the expanded canonical data directory path.">(),
    {}};

}  // namespace agent_onboarding
