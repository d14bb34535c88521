/// \file Where a named universe keeps its vocabulary.
#include "parts.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

Object local_vocabulary_path(Module m, const Object& data_dir, const Object& named_universe) {
    if (!truth(named_universe)) return none();
    const Object path = m.call<"os.path.join">(data_dir, "features"_s, named_universe, "vocabulary.json"_s);
    return truth(m.call<"os.path.exists">(path)) ? path : none();
}

}  // namespace

PyMethodDef functions::vocabulary[] = {def<"_local_vocabulary_path(data_dir, named_universe)", local_vocabulary_path>(),
                                       {}};

}  // namespace agent_onboarding
