/// \file The data directory's `manifest.json`: its files, and the runtime modules among them.
#include "parts.hpp"
#include "python/generator.hpp"
#include "runtime/json_file.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

Object manifest_files(Module, const Object& manifest) {
    if (manifest.is_none()) return dict();
    Object files = manifest.is_dict() ? manifest.lookup<"files">(dict) : manifest.find<"files">().value_or(dict());
    if (!files.is_dict()) return dict();
    return files;
}

Outcome read_manifest(Module m, const Object& data_dir) {
    const Object path = m.call<"os.path.join">(data_dir, "manifest.json"_s);
    if (!truth(m.call<"os.path.exists">(path))) {
        const Object incomplete = m.get<"RuntimeModuleDownloadIncomplete">();
        return refused(
            incomplete(text<"Runtime manifest is missing at {}.">(path), kw<"relative_path">("manifest.json"_s)));
    }
    const Object data = read_json(m, path);

    const Object make_namespace = m.get<"SimpleNamespace">();
    const Object era_number = data.lookup<"era_number">();
    const Object version = data.lookup<"version">();
    const Object files = data.lookup<"files">(dict);
    return make_namespace(kw<"era_number">(era_number), kw<"version">(version), kw<"files">(files));
}

Object sorted_files(Module m, const Object& manifest) {
    return iterator(sorted(items_of(m.call<"_manifest_files">(manifest))));
}

/// The module name that the entry is for, or something falsy where it is no runtime module of this platform.
Object module_name_of(Module m, const Object& relative_path, const Object& entry) {
    if (!entry.is_dict()) return none();
    const Object kind = str(entry.lookup<"kind">(""_s));
    if (!truth(m.call<"is_runtime_module_kind">(kind))) return none();
    const Object platform = entry.lookup<"platform">();
    if (truth(platform) && platform != m.get<"CURRENT_PLATFORM">()) return none();
    return m.call<"runtime_module_name_from_kind">(kind, relative_path);
}

std::optional<Object> next_entry(Module m, const Object& files) {
    while (const std::optional<Object> pair = next(files)) {
        const auto [relative_path, entry] = unpack<2>(*pair);
        const Object module_name = module_name_of(m, relative_path, entry);
        if (truth(module_name)) return tuple(module_name, relative_path, entry);
    }
    return std::nullopt;
}

Object runtime_module_manifest_entries(Module m, const Object& manifest) {
    return generator<sorted_files, next_entry>(m, manifest);
}

Object select_runtime_module_manifest_entry(Module m, const Object& manifest, const Object& module_name) {
    const Object candidates = set(module_name);
    if (module_name == "era_data"_s) add(candidates, "vault"_s);
    for (const Object& triple : iterate(m.call<"_runtime_module_manifest_entries">(manifest))) {
        const auto [name, relative_path, entry] = unpack<3>(triple);
        if (contains(candidates, name)) return tuple(relative_path, entry);
    }
    return tuple(none(), none());
}

}  // namespace

PyMethodDef functions::manifest[] = {
    def<"_manifest_files(manifest)", manifest_files>(),
    def<"_read_manifest(data_dir)", read_manifest>(),
    def<"_runtime_module_manifest_entries(manifest)", runtime_module_manifest_entries>(),
    def<"_select_runtime_module_manifest_entry(manifest, module_name)", select_runtime_module_manifest_entry>(),
    {}};

}  // namespace agent_onboarding
