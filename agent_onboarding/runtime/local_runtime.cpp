/// \file The local search runtime, assembled from the options and the files of the data directory.
#include "parts.hpp"
#include "shared/log_failure.hpp"
#include "shared/options.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

Object local_vocabulary_path(Module m, const Object& data_dir, const Object& named_universe) {
    if (!truth(named_universe)) return none;
    const Object path = m.call<"os.path.join">(data_dir, "features"_s, named_universe, "vocabulary.json"_s);
    return truth(m.call<"os.path.exists">(path)) ? path : none;
}

Object selected_universe(Module m, const Object& era_config) {
    Object universe = option<"named_universe">(m);
    if (era_config.is_dict() && !truth(universe))
        universe = m.call<"_first_allowed_named_universe_from_era_config">(era_config);
    return universe;
}

/// What the runtime knows of its universe: the vocabulary, and the mappings that have the universe as their only key.
struct Universe {
    Object name;
    Object vocabulary = none;
    Object vocabularies = dict{};
    Object feature_dirs = dict{};
    Object manifest_adapters = dict{};

    void load_vocabulary(Module m, const Object& data_dir, const Object& load) {
        const Object path = m.call<"_local_vocabulary_path">(data_dir, name);
        if (path.is_none()) return;
        vocabulary = invoke{load, path};
        vocabularies.set_item(name, vocabulary);
    }

    void add_features(Module m, const Object& data_dir, const Object& runtime_module, const Object& era_config) const {
        if (!truth(name)) return;
        feature_dirs.set_item(name, m.call<"os.path.join">(data_dir, "features"_s, name));
        const Object adapter = invoke{runtime_module.attr<"_RuntimeManifestAdapter">(),
                                      kw<"feature_epoch">(m.get<"EpochName.SIGNAL_IS.value">()),
                                      kw<"named_universe">(name), kw<"era_config">(era_config)};
        manifest_adapters.set_item(name, adapter);
    }

    [[nodiscard]] Object named_universes(Module m) const {
        if (!truth(name)) return list{};
        const Object configured = option<"named_universes">(m);
        return truth(configured) ? list_of(configured) : list{name};
    }
};

/// The manifest object that the runtime gets: `files` from manifest.json, the signal sections from the payload that
/// `_runtime` reads.
Object manifest_namespace(Module m, const Object& manifest, const Object& payload, const Object& era_number) {
    const auto section = [&](const Object& name) {
        return m.call<"_manifest_payload_mapping_or_empty">(payload, name);
    };
    return invoke{m.get<"SimpleNamespace">(),
                  kw<"era_number">(era_number),
                  kw<"files">(m.call<"_manifest_files">(manifest)),
                  kw<"signals_index">(payload.get<"signals_index">()),
                  kw<"found_signals">(section("found_signals"_s)),
                  kw<"found_strategies">(section("found_strategies"_s)),
                  kw<"useful_signals">(section("useful_signals"_s))};
}

Object vault_module(const Object& modules) {
    const Object module = modules.get<"era_data">();
    return module.is_none() ? modules.get<"vault">() : module;
}

/// The orchestrator class, the search plan, the expression type and its evaluator; the runtime works without them.
std::array<Object, 4> batch_helpers(Module m, const Object& runtime_module) {
    std::array<Object, 4> helpers{none, none, none, none};
    log_failure(
        m,
        [&] {
            helpers = unpack<4>(runtime_module.call<"_import_batch_runtime">());
            return none;
        },
        "Batch runtime import failed during local bootstrap; continuing without batch orchestration helpers: %s"_s);
    return helpers;
}

void reload_backtester_into(const Object& guard, const Object& consumer) {
    guard.call<"register_module_consumer">("backtester"_s, consumer, "raw_backtester"_s);
}

Object bootstrap_local_runtime_from_config(Module m, const Object& am) {
    const Object data_dir = invoke{m.get<"_canonical_data_dir">(), option<"data_dir">(m)};
    Universe universe{selected_universe(m, option<"era_config">(m))};

    const Object load_vocabulary = import_from(m, "sablecrest.obfuscation"_s, "load_vocabulary"_s);
    const Object runtime_module = import_from(m, "sablecrest"_s, "_runtime"_s);
    const Object search_tracker_class = import_from(m, "sablecrest.search_tracking"_s, "SearchTracker"_s);
    universe.load_vocabulary(m, data_dir, load_vocabulary);

    const Object guard = m.call<"create_runtime_freshness_guard">(data_dir);
    const Object manifest_file = m.call<"_read_manifest">(data_dir);
    const Object payload = m.call<"_read_manifest_payload_with_signals_index">(data_dir);
    const Object modules = m.call<"_load_runtime_modules_from_manifest">(data_dir, manifest_file);
    const Object era_number = as_int(payload.get<"era_number">());
    const Object manifest = manifest_namespace(m, manifest_file, payload, era_number);
    const Object sync_manager = m.call<"_LocalRuntimeSyncManager">(manifest, kw<"runtime_freshness_guard">(guard));

    const Object raw_vault =
        invoke{runtime_module.attr<"_load_vault_module">(), data_dir, kw<"vault_module">(vault_module(modules))};
    const Object era_config = invoke{runtime_module.attr<"_normalize_era_config">(), option<"era_config">(m),
                                     era_number, kw<"manifest">(manifest)};
    const Object vault =
        runtime_module.call<"_wrap_synced_vault">(raw_vault, kw<"manifest">(manifest), kw<"era_config">(era_config));
    runtime_module.call<"_initialize_vault_for_backtester_import">(vault, kw<"data_dir">(data_dir), kw<"auth">(am));

    const Object raw_backtester =
        invoke{m.get<"_load_per_era_backtester">(), data_dir, kw<"market_id">(option<"market_id">(m)),
               kw<"era_number">(era_number), kw<"era_config">(era_config)};
    const Object registry = runtime_module.call<"_build_function_registry">(universe.vocabulary);
    const auto [batch_orchestrator_cls, compute_search_plan, expression_type_cls, expression_evaluator] =
        batch_helpers(m, runtime_module);

    const Object evaluator = runtime_module.call<"RuntimeEvaluationAdapter">(
        kw<"data_dir">(data_dir), kw<"era_config">(era_config), kw<"raw_backtester">(raw_backtester),
        kw<"vault">(vault), kw<"manifest">(manifest), kw<"graph_validator">(none),
        kw<"batch_orchestrator_cls">(batch_orchestrator_cls), kw<"compute_search_plan">(compute_search_plan),
        kw<"expression_type_cls">(expression_type_cls), kw<"expression_evaluator">(expression_evaluator),
        kw<"registry">(registry), kw<"raw_vocabulary">(universe.vocabulary), kw<"named_universe">(universe.name),
        kw<"auth">(am), kw<"runtime_freshness_guard">(guard));
    reload_backtester_into(guard, evaluator);

    const Object search_tracker =
        invoke{search_tracker_class, data_dir, kw<"settings_path">(option<"_settings_path">(m))};
    const Object named_universes = universe.named_universes(m);
    universe.add_features(m, data_dir, runtime_module, era_config);

    Object runtime = invoke{runtime_module.attr<"LibraryRuntime">(),
                            kw<"auth">(am),
                            kw<"auth_proxy">(am),
                            kw<"data_dir">(data_dir),
                            kw<"server_url">(m.call<"_configured_signal_service_url">()),
                            kw<"sync_manager">(sync_manager),
                            kw<"era_number">(era_number),
                            kw<"era_thread">(runtime_module.call<"_EraThreadProxy">(era_number)),
                            kw<"era_config">(era_config),
                            kw<"search_era_config">(runtime_module.call<"_SearchEraConfig">(era_config)),
                            kw<"named_universes">(named_universes),
                            kw<"default_named_universe">(truth(universe.name) ? universe.name : none),
                            kw<"vocabularies">(universe.vocabularies),
                            kw<"feature_dirs">(universe.feature_dirs),
                            kw<"manifest_adapters">(universe.manifest_adapters),
                            kw<"vocabulary_raw">(universe.vocabulary),
                            kw<"registry">(registry),
                            kw<"vault">(vault),
                            kw<"raw_backtester">(raw_backtester),
                            kw<"evaluator">(evaluator),
                            kw<"search_tracker">(search_tracker),
                            kw<"runtime_freshness_guard">(guard)};

    const Object graph_validator = runtime_module.call<"_build_graph_validator">(registry);
    evaluator.set_attr<"graph_validator">(graph_validator);
    runtime.set_attr<"graph_validator">(graph_validator);
    reload_backtester_into(guard, runtime);
    return runtime;
}

}  // namespace

PyMethodDef functions::local_runtime[] = {
    def<"_local_vocabulary_path(data_dir, named_universe)", local_vocabulary_path>(),
    def<"_bootstrap_local_runtime_from_config(am)", bootstrap_local_runtime_from_config>(),
    {}};

}  // namespace agent_onboarding
