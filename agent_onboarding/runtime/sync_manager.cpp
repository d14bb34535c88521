/// \file A sync manager that never syncs: the runtime that is brought up from local files serves the manifest it has.
#include "parts.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

Object initialise(Module, const Object& self, const Object& manifest, const Object& runtime_freshness_guard) {
    self.set_attr<"_manifest">(manifest);
    self.set_attr<"_vocabulary">(dict{});
    self.set_attr<"runtime_freshness_guard">(runtime_freshness_guard);
    return none;
}

Object get_manifest(Module, const Object& self) { return self.attr<"_manifest">(); }
Object acquire(Module, const Object& /*self*/) { return none; }
Object release(Module, const Object& /*self*/) { return none; }
Object request_for_sync(Module, const Object& /*self*/) { return list{}; }
Object ignore_callback(Module, const Object& /*self*/, const Object& /*callback*/) { return none; }

PyMethodDef methods[] = {def<"__init__(self, manifest, runtime_freshness_guard=None)", initialise>(),
                         def<"get_manifest(self)", get_manifest>(),
                         def<"acquire(self)", acquire>(),
                         def<"release(self)", release>(),
                         def<"request_for_sync(self)", request_for_sync>(),
                         def<"register_era_callback(self, callback)", ignore_callback>(),
                         def<"unregister_era_callback(self, callback)", ignore_callback>()};

}  // namespace

Object make_sync_manager_class(Module m) {
    const Object body = dict{};
    add_methods(m, body, methods);
    return make_class(m, "_LocalRuntimeSyncManager"_s, body);
}

}  // namespace agent_onboarding
