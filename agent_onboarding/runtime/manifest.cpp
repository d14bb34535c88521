/// \file The data directory's `manifest.json`: its files, the runtime modules among them, and the sections of its payload.
#include "parts.hpp"
#include "python/generator.hpp"
#include "shared/files.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

Object read_json(Module m, const Object& path) {
    return with_text_file(m, path, "r"_s, [&](const Object& file) { return m.call<"json.load">(file); });
}

Object read_json_if_present(Module m, const Object& path) {
    if (!truth(path)) return none;
    if (!truth(m.call<"os.path.exists">(path))) return none;
    return read_json(m, path);
}

Object read_manifest(Module m, const Object& data_dir) {
    const Object path = m.call<"os.path.join">(data_dir, "manifest.json"_s);
    if (!truth(m.call<"os.path.exists">(path)))
        raise(invoke{m.get<"RuntimeModuleDownloadIncomplete">(), fstring<"Runtime manifest is missing at {}.">{path},
                     kw<"relative_path">("manifest.json"_s)});
    const Object data = read_json(m, path);
    return invoke{m.get<"SimpleNamespace">(), kw<"era_number">(data.get<"era_number">()),
                  kw<"version">(data.get<"version">()), kw<"files">(data.get<"files">(empty_dict))};
}

Object manifest_files(Module, const Object& manifest) {
    if (manifest.is_none()) return dict{};
    Object files =
        manifest.is_dict() ? manifest.get<"files">(empty_dict) : manifest.find_attr<"files">().value_or(dict{});
    if (!files.is_dict()) return dict{};
    return files;
}

Object sorted_files(Module m, const Object& manifest) {
    return iterator(sorted(items_of(m.call<"_manifest_files">(manifest))));
}

/// The module name that the entry is for, or something falsy where it is no runtime module of this platform.
Object module_name_of(Module m, const Object& relative_path, const Object& entry) {
    if (!entry.is_dict()) return none;
    const Object kind = str(entry.get<"kind">(""_s));
    if (!truth(m.call<"is_runtime_module_kind">(kind))) return none;
    const Object platform = entry.get<"platform">();
    if (truth(platform) && platform != m.get<"CURRENT_PLATFORM">()) return none;
    return m.call<"runtime_module_name_from_kind">(kind, relative_path);
}

std::optional<Object> next_runtime_module(Module m, const Object& files) {
    while (const auto pair = next(files)) {
        const auto [relative_path, entry] = unpack<2>(*pair);
        const Object module_name = module_name_of(m, relative_path, entry);
        if (truth(module_name)) return tuple{module_name, relative_path, entry};
    }
    return std::nullopt;
}

constexpr GeneratorBody runtime_modules{sorted_files, next_runtime_module};

Object runtime_module_manifest_entries(Module m, const Object& manifest) {
    return generator(m, runtime_modules, manifest);
}

Object select_runtime_module_manifest_entry(Module m, const Object& manifest, const Object& module_name) {
    const Object candidates = set{module_name};
    if (module_name == "era_data"_s) add(candidates, "vault"_s);
    for (const Object& triple : iterate(m.call<"_runtime_module_manifest_entries">(manifest))) {
        const auto [name, relative_path, entry] = unpack<3>(triple);
        if (contains(candidates, name)) return tuple{relative_path, entry};
    }
    return tuple{none, none};
}

Object read_manifest_payload_with_signals_index(Module m, const Object& data_dir) {
    const Object runtime = import_from(m, "sablecrest"_s, "_runtime"_s);
    return runtime.call<"_read_manifest_payload_with_signals_index">(data_dir);
}

Object manifest_payload_mapping_or_empty(Module, const Object& manifest_payload, const Object& section) {
    const Object value = manifest_payload.get(section);
    return value.is_dict() ? dict_of(value) : dict{};
}

}  // namespace

PyMethodDef functions::manifest[] = {
    def<"_read_json_if_present(path)", read_json_if_present>(),
    def<"_read_manifest(data_dir)", read_manifest>(),
    def<"_manifest_files(manifest)", manifest_files>(),
    def<"_runtime_module_manifest_entries(manifest)", runtime_module_manifest_entries>(),
    def<"_select_runtime_module_manifest_entry(manifest, module_name)", select_runtime_module_manifest_entry>(),
    def<"_read_manifest_payload_with_signals_index(data_dir)", read_manifest_payload_with_signals_index>(),
    def<"_manifest_payload_mapping_or_empty(manifest_payload, section)", manifest_payload_mapping_or_empty>(),
    {}};

}  // namespace agent_onboarding
