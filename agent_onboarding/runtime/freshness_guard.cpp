/// \file The freshness guard, whose loader is the verified loader.
#include "parts.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

Object load_for_guard(Module m, const Object& data_dir, const Object& module_name, const Object& expected_sha256) {
    return m.call<"_load_manifest_runtime_module">(data_dir, module_name, kw<"expected_sha256">(expected_sha256));
}

PyMethodDef load_entry = def<"_load(data_dir, module_name, expected_sha256)", load_for_guard>();

Object create_runtime_freshness_guard(Module m, const Object& data_dir) {
    return invoke{m.get<"RuntimeFreshnessGuard">(), kw<"data_dir">(data_dir),
                  kw<"module_loader">(bound_method(function(m, load_entry), data_dir))};
}

}  // namespace

PyMethodDef functions::freshness_guard[] = {
    def<"create_runtime_freshness_guard(data_dir)", create_runtime_freshness_guard>(), {}};

}  // namespace agent_onboarding
