/// \file The module body: everything that importing the module binds, in order.
#include "parts.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

void import_standard_modules(Module m) {
    m.set<"importlib">(import_module(m, "importlib.util"_s));
    m.set<"hashlib">(import_module(m, "hashlib"_s));
    m.set<"json">(import_module(m, "json"_s));
    m.set<"logging">(import_module(m, "logging"_s));
    m.set<"os">(import_module(m, "os"_s));
    m.set<"secrets">(import_module(m, "secrets"_s));
    m.set<"shutil">(import_module(m, "shutil"_s));
    m.set<"_stat">(import_module(m, "stat"_s));
    m.set<"sys">(import_module(m, "sys"_s));
    m.set<"types">(import_module(m, "types"_s));
    m.set<"urllib">(import_module(m, "urllib.error"_s));
    m.set<"urllib">(import_module(m, "urllib.request"_s));
}

/// `from package import name, …`
template <Literal Package, Literal... Names>
void import_names(Module m) {
    const Object names = tuple(string_name<Names>.get()...);
    const Object package = import_module(m, string_name<Package>.get(), names);
    (m.set<Names>(imported_name(package, string_name<Names>.get())), ...);
}

void import_siblings(Module m) {
    import_names<"sablecrest.era_config", "EpochName">(m);
    import_names<"sablecrest", "auth">(m);
    import_names<"sablecrest.errors", "RuntimeModuleDownloadIncomplete", "RuntimeModuleHashMismatch",
                 "RuntimeModuleReloadFailed">(m);
    import_names<"sablecrest.runtime_module_freshness", "RuntimeFreshnessGuard", "is_runtime_module_kind",
                 "runtime_module_name_from_kind", "validate_synced_runtime_module_contract">(m);
    import_names<"sablecrest.settings", "DATA_DIR", "default_settings_path", "load_settings", "resolve_data_dir">(m);
    import_names<"sablecrest.skills", "list_skills">(m);
    import_names<"sablecrest.sync", "CURRENT_PLATFORM">(m);
}

}  // namespace

void define_module_body(Module m) {
    import_standard_modules(m);
    import_names<"dataclasses", "dataclass", "field">(m);
    import_names<"types", "SimpleNamespace">(m);
    import_names<"typing", "List", "Optional">(m);
    import_siblings(m);

    m.set<"logger">(m.call<"logging.getLogger">("sablecrest.agent_onboarding"_s));
    m.set<"DEFAULT_SERVER_URL">("https://api.sablecrest.example"_s);

    bind_functions(m, functions::error_detail);
    bind_functions(m, functions::module_copies);
    bind_functions(m, functions::aliases);
    bind_functions(m, functions::manifest);
    bind_functions(m, functions::module_loading);
    bind_functions(m, functions::freshness);
    define_backtester_names(m);
    bind_functions(m, functions::backtester);

    define_records(m);
    define_option_store(m);
    m.set<"_auth_manager">(none());
    define_option_types(m);
    bind_functions(m, functions::option_types);
    define_workspace_texts(m);

    bind_functions(m, functions::heartbeat_search);
    bind_functions(m, functions::key_prefix);
    bind_functions(m, functions::invite_codes);
    bind_functions(m, functions::safe_universe);
    bind_functions(m, functions::signal_service_url);
    bind_functions(m, functions::eras_payload);
    bind_functions(m, functions::named_universes);
    bind_functions(m, functions::active_universe);
    bind_functions(m, functions::data_directory);
    bind_functions(m, functions::file_settings);
    bind_functions(m, functions::key_file);
    define_sync_manager(m);
    bind_functions(m, functions::payloads);
    bind_functions(m, functions::vocabulary);
    bind_functions(m, functions::bootstrap);
    bind_functions(m, functions::bring_up);
    bind_functions(m, functions::registration);
    bind_functions(m, functions::configuration);
    bind_functions(m, functions::heartbeat);
    bind_functions(m, functions::nudges);
}

}  // namespace agent_onboarding
