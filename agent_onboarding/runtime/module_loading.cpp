/// \file Runtime modules of the manifest, loaded only when their bytes have the digest that it names.
#include "parts.hpp"
#include "runtime/import_path.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

/// Runtime modules are released for one interpreter version only.
void require_release_interpreter(Module m, const Object& module_name, const Object& expected_sha256) {
    const Object release = tuple{3, 12};
    if (slice_to(m.get<"sys.version_info">(), 2) == release) return;
    const Object fields = list{};
    for (const Object& field : iterate(slice_to(m.get<"sys.version_info">(), 3))) append(fields, str(field));
    raise(invoke{m.get<"RuntimeModuleReloadFailed">(),
                 fstring<"SableCrest release runtime modules require CPython 3.12; running CPython {}. Recreate the "
                         "environment with python3.12 before running sablecrest start.">{join("."_s, fields)},
                 kw<"module_name">(module_name), kw<"expected_sha256">(expected_sha256)});
}

/// One module of a manifest, and what is known of it so far.
struct RuntimeModule {
    Module m;
    Object name, relative_path, file_info, expected, path;

    void require_file() const {
        if (truth(m.call<"os.path.exists">(path))) return;
        raise(invoke{m.get<"RuntimeModuleDownloadIncomplete">(),
                     fstring<"Runtime module {} is missing at {}.">{repr(name), path}, kw<"module_name">(name),
                     kw<"relative_path">(relative_path), kw<"expected_sha256">(expected)});
    }

    [[noreturn]] void refuse_digest(const Object& message, const Object& actual) const {
        raise(m.call<"RuntimeModuleHashMismatch">(message, kw<"module_name">(name), kw<"relative_path">(relative_path),
                                                  kw<"expected_sha256">(expected), kw<"actual_sha256">(actual)));
    }

    /// The digest of the file; refuses one that is not expected.
    [[nodiscard]] Object verified_digest() const {
        Object actual = m.call<"_sha256_file">(path);
        if (truth(expected) && actual != expected)
            refuse_digest(
                fstring<"Runtime module {} hash mismatch at {}: expected {}, got {}.">{repr(name), relative_path,
                                                                                       expected, actual},
                actual);
        return actual;
    }

    [[nodiscard]] Object load(const Object& actual) const {
        return try_except(
            [&] {
                m.call<"_ensure_legacy_src_namespace_alias">();
                return m.call<"_load_extension_from_path">(name, path);
            },
            {PyExc_Exception},
            [&](const Handling& except) -> Object {
                raise_from(invoke{m.get<"RuntimeModuleReloadFailed">(),
                                  fstring<"Runtime module {} failed to load from {}: {}">{repr(name), relative_path,
                                                                                          str(except.value())},
                                  kw<"module_name">(name), kw<"relative_path">(relative_path),
                                  kw<"expected_sha256">(expected), kw<"actual_sha256">(actual)},
                           except.value());
            });
    }

    /// The file may have been replaced after its digest was checked. Its code has run by now; the caller gets an error
    /// instead of the module.
    void require_stamp(const Object& module) const {
        if (truth(expected) && attr_or_none<"_sablecrest_module_sha256">(module) != expected)
            refuse_digest(fstring<"Runtime module {} loaded with unexpected hash.">{repr(name)},
                          attr_or_none<"_sablecrest_module_sha256">(module));
    }
};

/// The manifest's entry for the module; the argument comes before the digest of the entry.
RuntimeModule find_in_manifest(Module m, const Object& data_dir, const Object& manifest, const Object& name,
                               const Object& expected_sha256) {
    const auto [relative_path, file_info] = unpack<2>(m.call<"_select_runtime_module_manifest_entry">(manifest, name));
    if (relative_path.is_none())
        raise(invoke{m.get<"RuntimeModuleDownloadIncomplete">(),
                     fstring<"Manifest does not contain a runtime module for {}.">{repr(name)}, kw<"module_name">(name),
                     kw<"expected_sha256">(expected_sha256)});
    const Object expected = truth(expected_sha256) ? expected_sha256 : file_info.get<"sha256">();
    return {m, name, relative_path, file_info, expected, m.call<"os.path.join">(data_dir, relative_path)};
}

Object load_manifest_runtime_module(Module m, const Object& data_dir, const Object& module_name,
                                    const Object& expected_sha256, Object manifest) {
    require_release_interpreter(m, module_name, expected_sha256);

    const Object expanded = str(m.call<"resolve_data_dir">(data_dir, kw<"ensure">(false)));
    put_on_import_path(m, expanded);
    if (manifest.is_none()) manifest = m.call<"_read_manifest">(expanded);

    const RuntimeModule runtime_module = find_in_manifest(m, expanded, manifest, module_name, expected_sha256);
    runtime_module.require_file();
    const Object actual = runtime_module.verified_digest();
    m.call<"validate_synced_runtime_module_contract">(
        kw<"module_name">(module_name), kw<"relative_path">(runtime_module.relative_path),
        kw<"file_info">(runtime_module.file_info), kw<"local_path">(runtime_module.path));

    Object module = runtime_module.load(actual);
    runtime_module.require_stamp(module);
    return module;
}

/// `era_data` first, then by name; by path where a name is listed twice.
Object load_order(const Object& triple) {
    const auto [name, relative_path, entry] = unpack<3>(triple);
    return tuple{name == "era_data"_s ? 0 : 1, name, relative_path};
}

Object load_runtime_modules_from_manifest(Module m, const Object& data_dir, const Object& manifest) {
    Object loaded = dict{};
    const Object entries = list_of(m.call<"_runtime_module_manifest_entries">(manifest));
    for (const Object& triple : iterate(sorted_by(entries, Order::ascending, load_order))) {
        const auto [name, relative_path, file_info] = unpack<3>(triple);
        if (contains(loaded, name)) continue;
        const Object module = invoke{m.get<"_load_manifest_runtime_module">(), data_dir, name,
                                     kw<"expected_sha256">(file_info.get<"sha256">()), kw<"manifest">(manifest)};
        loaded.set_item(name, module);
    }
    return loaded;
}

}  // namespace

PyMethodDef functions::module_loading[] = {
    def<"_load_manifest_runtime_module(data_dir, module_name, *, expected_sha256=None, manifest=None)",
        load_manifest_runtime_module>(),
    def<"_load_runtime_modules_from_manifest(data_dir, manifest)", load_runtime_modules_from_manifest>(),
    {}};

}  // namespace agent_onboarding
