/// \file The module body: everything that importing the module binds, in order.
#include <cstring>

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
    const Object package = import_module(m, string_name<Package>.get(), tuple{string_name<Names>.get()...});
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

Object make_logger(Module m) { return m.call<"logging.getLogger">("sablecrest.agent_onboarding"_s); }
Object make_server_url(Module) { return "https://api.sablecrest.example"_s; }
Object make_auth_manager(Module) { return none; }

/// A name of the module with what it is bound to: the entry of this name in a function table, or a value.
struct Binding {
    const char* name;
    PyMethodDef* functions = nullptr;
    Object (*make)(Module m) = nullptr;

    constexpr Binding(const char* bound_name, PyMethodDef* table) : name(bound_name), functions(table) {}
    constexpr Binding(const char* bound_name, Object (*maker)(Module)) : name(bound_name), make(maker) {}

    [[nodiscard]] Object value(Module m) const {
        if (make != nullptr) return make(m);
        PyMethodDef* entry = functions;
        while (std::strcmp(entry->ml_name, name) != 0) ++entry;
        return function(m, *entry);
    }
};

constexpr Binding outline[] = {
    {"logger", make_logger},
    {"DEFAULT_SERVER_URL", make_server_url},

    {"_exception_chain_detail", functions::error_detail},
    {"_sha256_file", functions::module_copies},
    {"_content_addressed_extension_path", functions::module_copies},
    {"_prune_runtime_extension_copies", functions::module_copies},
    {"_load_extension_from_path", functions::module_copies},
    {"_ensure_legacy_src_namespace_alias", functions::aliases},
    {"_ensure_package_module", functions::aliases},
    {"_legacy_src_module_name", functions::aliases},
    {"_ensure_legacy_src_obfuscation_core_alias", functions::aliases},
    {"_manifest_files", functions::manifest},
    {"_read_manifest", functions::manifest},
    {"_runtime_module_manifest_entries", functions::manifest},
    {"_select_runtime_module_manifest_entry", functions::manifest},
    {"_load_manifest_runtime_module", functions::module_loading},
    {"_load_runtime_modules_from_manifest", functions::module_loading},
    {"create_runtime_freshness_guard", functions::freshness_guard},
    {"_BACKTEST_MODULE_NAMES", make_backtest_module_names},
    {"_BACKTEST_PARENT_MODULE_NAMES", make_backtest_parent_module_names},
    {"_forget_preloaded_backtester_modules", functions::backtester},
    {"_module_not_found_is_candidate", functions::backtester},
    {"_import_backtester_module", functions::backtester},
    {"_load_per_era_backtester", functions::backtester},

    {"WalletRegistration", make_wallet_registration},
    {"AuthToken", make_auth_token},
    {"_config", make_option_store},
    {"_auth_manager", make_auth_manager},
    {"_VALID_OPTIONS", make_option_types},
    {"_ROTATION_SETTING_OPTIONS", make_rotation_option_names},
    {"_expected_type_name", functions::options},
    {"_HEARTBEAT_STATIC_SECTION", make_heartbeat_section},
    {"_NUDGE_TEXTS", make_nudge_texts},
    {"_AGENTS_MD_FRAGMENT", make_agents_fragment},

    {"_find_heartbeat", functions::heartbeat},
    {"_normalize_key", functions::registration},
    {"_resolve_invite_code", functions::registration},
    {"_resolve_optional_invite_code", functions::registration},
    {"_safe_named_universe", functions::named_universes},
    {"_configured_signal_service_url", functions::options},
    {"_fetch_eras_payload", functions::eras},
    {"_append_unique_named_universe", functions::named_universes},
    {"_append_allowed_named_universes", functions::named_universes},
    {"_active_era_named_universe_candidates", functions::named_universes},
    {"_first_allowed_named_universe_from_era_config", functions::named_universes},
    {"_resolve_active_named_universe", functions::eras},
    {"_canonical_data_dir", functions::data_directory},
    {"_apply_file_settings", functions::settings},
    {"_wallet_key_path", functions::key_file},
    {"_unsafe_wallet_error", functions::key_file},
    {"_check_wallet_fd", functions::key_file},
    {"_read_wallet_key", functions::key_file},
    {"_write_wallet_key", functions::key_file},
    {"_LocalRuntimeSyncManager", make_sync_manager_class},
    {"_read_json_if_present", functions::manifest},
    {"_read_manifest_payload_with_signals_index", functions::manifest},
    {"_manifest_payload_mapping_or_empty", functions::manifest},
    {"_local_vocabulary_path", functions::local_runtime},
    {"_bootstrap_local_runtime_from_config", functions::local_runtime},
    {"_propagate_auth", functions::hand_over},
    {"ensure_runtime_bootstrapped", functions::hand_over},
    {"register", functions::registration},
    {"login", functions::registration},
    {"configure", functions::options},
    {"inject_heartbeat", functions::heartbeat},
    {"update_nudge", functions::nudges},
    {"get_agents_md_fragment", functions::nudges},
};

}  // namespace

void define_module_body(Module m) {
    import_standard_modules(m);
    import_names<"dataclasses", "dataclass", "field">(m);
    import_names<"types", "SimpleNamespace">(m);
    import_names<"typing", "List", "Optional">(m);
    import_siblings(m);
    for (const Binding& binding : outline) m.set(binding.name, binding.value(m));
}

}  // namespace agent_onboarding
