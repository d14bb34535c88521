/// \file JSON that may be absent: files, and sections of the manifest's payload.
#include "parts.hpp"
#include "runtime/json_file.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

Object read_json_if_present(Module m, const Object& path) {
    if (!truth(path)) return none();
    if (!truth(m.call<"os.path.exists">(path))) return none();
    return read_json(m, path);
}

Object read_manifest_payload_with_signals_index(Module m, const Object& data_dir) {
    const Object runtime = import_from(m, "sablecrest"_s, "_runtime"_s);
    return runtime.call<"_read_manifest_payload_with_signals_index">(data_dir);
}

Object manifest_payload_mapping_or_empty(Module, const Object& manifest_payload, const Object& section) {
    const Object value = manifest_payload.lookup(section);
    return value.is_dict() ? dict_of(value) : dict();
}

}  // namespace

PyMethodDef functions::payloads[] = {
    def<"_read_json_if_present(path)", read_json_if_present>(),
    def<"_read_manifest_payload_with_signals_index(data_dir)", read_manifest_payload_with_signals_index>(),
    def<"_manifest_payload_mapping_or_empty(manifest_payload, section)", manifest_payload_mapping_or_empty>(),
    {}};

}  // namespace agent_onboarding
