/// \file A sync manager that never syncs: the runtime that is brought up from local files serves the manifest it has.
#include "parts.hpp"
#include "python/constructor.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

Object initialise(Module, const Object& self, const Object& manifest, const Object& runtime_freshness_guard) {
    self.set<"_manifest">(manifest);
    self.set<"_vocabulary">(dict());
    self.set<"runtime_freshness_guard">(runtime_freshness_guard);
    return none();
}

Object get_manifest(Module, const Object& self) { return self.get<"_manifest">(); }
Object acquire(Module, const Object&) { return none(); }
Object release(Module, const Object&) { return none(); }
Object request_for_sync(Module, const Object&) { return list(); }
Object ignore_callback(Module, const Object&, const Object&) { return none(); }

// Not a method descriptor: those keep `inspect.signature` from reading the signature of their class.
constexpr Literal signature{"__init__(self, manifest, runtime_freshness_guard=None)"};
PyMethodDef initialise_entry = def<signature, initialise>();

PyMethodDef methods[] = {def_method<"get_manifest($self)", get_manifest>(),
                         def_method<"acquire($self)", acquire>(),
                         def_method<"release($self)", release>(),
                         def_method<"request_for_sync($self)", request_for_sync>(),
                         def_method<"register_era_callback($self, callback)", ignore_callback>(),
                         def_method<"unregister_era_callback($self, callback)", ignore_callback>(),
                         {}};

}  // namespace

void define_sync_manager(Module m) {
    const Object attributes = dict();
    attributes.set_item<"__init__">(method(m, initialise_entry));
    const Object cls = make_class(m, "_LocalRuntimeSyncManager"_s, attributes, methods);
    shorten_construction<signature, initialise>(m, cls);
    m.set<"_LocalRuntimeSyncManager">(cls);
}

}  // namespace agent_onboarding
