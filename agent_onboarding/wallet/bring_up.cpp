/// \file The authenticated runtime: the session and the runtime, handed over to the search and simulation modules.
///
/// Strict callers get an exception for every step that fails, others a log record and whatever could be brought up.
#include "parts.hpp"
#include "surface/warning.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

Object joined_detail(const Object& message, const Object& detail) {
    return truth(detail) ? text<"{}: {}">(message, detail) : message;
}

void set_active_manager(Module m, const Object& auth, const Object& am, const Object& strict) {
    warn_then(
        m, [&] { return auth.call<"_set_active_auth_manager">(am); },
        [&](const Object& exc) {
            if (truth(strict))
                raise_from(call(PyExc_RuntimeError, "SableCrest auth bootstrap failed after authentication."_s), exc);
        },
        "Failed to set active auth manager: %s"_s);
}

/// The runtime that the package builds from the service; None where it builds none.
Object bootstrap_runtime(Module m, const Object& am, const Object& strict) {
    const Object sync_backoff = import_from(m, "sablecrest"_s, "sync_backoff"_s);
    const Object runtime_module = import_from(m, "sablecrest"_s, "_runtime"_s);
    try {
        const Object bootstrap = runtime_module.get<"bootstrap_runtime">();
        const Object config = m.get<"_config">();
        return bootstrap(am, config, m.get<"_load_per_era_backtester">());
    } catch (const Error& error) {
        const Handling except{error};
        if (except.caught(sync_backoff.get<"SyncBackoffCancelled">())) throw;
        if (!except.caught(PyExc_Exception)) throw;
        const Object detail = m.call<"_exception_chain_detail">(except.value());
        m.call<"logger.warning">("Failed to bootstrap sablecrest runtime: %s"_s, except.value());
        if (truth(strict))
            raise(PyExc_RuntimeError,
                  joined_detail("SableCrest registration authenticated, but runtime data bootstrap failed"_s, detail));
        return none();
    }
}

Object bootstrap_local_runtime(Module m, const Object& am) {
    intern<"_bootstrap_local_runtime_from_config">();  // what fails below is only logged
    try {
        return m.call<"_bootstrap_local_runtime_from_config">(am);
    } catch (const Error& error) {
        const Handling except{error};
        if (!except.caught(PyExc_Exception)) throw;
        m.call<"logger.debug">("Failed to bootstrap local sablecrest runtime: %s"_s, except.value());
        return none();
    }
}

void inject_into_search_templates(Module m, const Object& runtime, const Object& strict, const Object& warning) {
    warn_then(
        m,
        [&] {
            m.call<"importlib.import_module">("sablecrest.search_templates"_s).set<"_library_runtime">(runtime);
            return none();
        },
        [&](const Object&) {
            if (truth(strict)) raise(PyExc_RuntimeError, "SableCrest search runtime injection failed."_s);
        },
        warning);
}

Object default_vocabulary(const Object& runtime) {
    const Object vocabularies = get_or_none<"vocabularies">(runtime);
    const Object universe = get_or_none<"default_named_universe">(runtime);
    return truth(vocabularies) ? vocabularies.lookup(universe) : none();
}

Object vocabulary_loader(Module m, const Object& runtime) {
    Object load_vocabulary = get_or_none<"load_vocabulary">(runtime);
    if (!load_vocabulary.is_none()) return load_vocabulary;
    return import_from(m, "sablecrest.obfuscation"_s, "load_vocabulary"_s);
}

/// Braces, because their arguments are evaluated in order.
struct SimulationParts {
    Object sync_manager, vault, backtester, search_tracker, era_thread, graph_validator, compute_search_plan,
        era_config, load_vocabulary, useful_signal_metadata, load_found_signal_pnl, signal_dir,
        make_batch_orchestrator_cls, correlate_per_pool, compute_mi_per_pool, vocabulary, vocabulary_raw,
        runtime_freshness_guard;
};

SimulationParts parts_of(Module m, const Object& runtime) {
    return {get_or_none<"sync_manager">(runtime),
            get_or_none<"vault">(runtime),
            get_or_none<"raw_backtester">(runtime),
            get_or_none<"search_tracker">(runtime),
            get_or_none<"era_thread">(runtime),
            get_or_none<"graph_validator">(runtime),
            get_or_none<"compute_search_plan">(get_or_none<"evaluator">(runtime)),
            get_or_none<"era_config">(runtime),
            vocabulary_loader(m, runtime),
            get_or_none<"useful_signal_metadata">(runtime),
            get_or_none<"load_found_signal_pnl">(runtime),
            get_or_none<"signal_dir">(runtime),
            get_or_none<"make_batch_orchestrator_cls">(runtime),
            get_or_none<"correlate_per_pool">(runtime),
            get_or_none<"compute_mi_per_pool">(runtime),
            default_vocabulary(runtime),
            get_or_none<"vocabulary_raw">(runtime),
            get_or_none<"runtime_freshness_guard">(runtime)};
}

void initialise_with(Module m, const Object& simulate_signal, const Object& am, const Object& runtime) {
    const Object initialise = simulate_signal.get<"init_simulate_signal">();
    const SimulationParts parts = parts_of(m, runtime);
    initialise(kw<"auth">(am), kw<"sync_manager">(parts.sync_manager), kw<"vault">(parts.vault),
               kw<"backtester">(parts.backtester), kw<"search_tracker">(parts.search_tracker),
               kw<"era_thread">(parts.era_thread), kw<"graph_validator">(parts.graph_validator),
               kw<"compute_search_plan">(parts.compute_search_plan), kw<"era_config">(parts.era_config),
               kw<"load_vocabulary">(parts.load_vocabulary), kw<"useful_signal_metadata">(parts.useful_signal_metadata),
               kw<"load_found_signal_pnl">(parts.load_found_signal_pnl), kw<"signal_dir">(parts.signal_dir),
               kw<"make_batch_orchestrator_cls">(parts.make_batch_orchestrator_cls),
               kw<"correlate_per_pool">(parts.correlate_per_pool), kw<"compute_mi_per_pool">(parts.compute_mi_per_pool),
               kw<"vocabulary">(parts.vocabulary), kw<"vocabulary_raw">(parts.vocabulary_raw),
               kw<"runtime_freshness_guard">(parts.runtime_freshness_guard));
}

/// The simulation module, initialised; nothing where that failed.
std::optional<Object> initialise_simulate_signal(Module m, const Object& am, const Object& runtime,
                                                 const Object& strict) {
    return warn_then(
        m,
        [&] {
            Object simulate_signal = m.call<"importlib.import_module">("sablecrest.simulate_signal"_s);
            if (runtime.is_none()) raise(PyExc_RuntimeError, "private sablecrest runtime was not initialized"_s);
            initialise_with(m, simulate_signal, am, runtime);
            return simulate_signal;
        },
        [&](const Object& exc) {
            const Object detail = m.call<"_exception_chain_detail">(exc);
            if (truth(strict))
                raise(PyExc_RuntimeError, joined_detail("SableCrest simulate_signal bootstrap failed"_s, detail));
        },
        "Failed to initialize simulate_signal: %s"_s);
}

/// Importing the submodule has bound it to the package under the name of its function.
void restore_top_level_export(Module m, const Object& simulate_signal, const Object& strict) {
    warn_then(
        m,
        [&] {
            const Object exported = simulate_signal.get<"_simulate_signal_export">();
            import_module(m, "sablecrest"_s).set<"simulate_signal">(exported);
            return none();
        },
        [&](const Object&) {
            if (truth(strict)) raise(PyExc_RuntimeError, "SableCrest simulate exports bootstrap failed."_s);
        },
        "Failed to restore top-level simulate exports: %s"_s);
}

Object propagate_auth(Module m, const Object& am, const Object& strict) {
    const Object auth = import_from(m, "sablecrest"_s, "auth"_s);
    set_active_manager(m, auth, am, strict);

    Object runtime = bootstrap_runtime(m, am, strict);
    if (runtime.is_none()) runtime = bootstrap_local_runtime(m, am);
    if (runtime.is_none() && truth(strict))
        raise(PyExc_RuntimeError,
              "SableCrest registration authenticated, but runtime data bootstrap returned no runtime."_s);

    inject_into_search_templates(m, runtime, strict, "Failed to inject runtime into search_templates: %s"_s);
    if (const auto simulate_signal = initialise_simulate_signal(m, am, runtime, strict))
        restore_top_level_export(m, *simulate_signal, strict);
    return none();
}

Object ensure_runtime_bootstrapped(Module m, const Object& strict) {
    const Object auth = import_from(m, "sablecrest"_s, "auth"_s);
    if (m.get<"_auth_manager">().is_none())
        raise(auth.call<"AuthError">("No wallet initialized. Call register() or login() first."_s));

    const Object runtime_module = import_from(m, "sablecrest"_s, "_runtime"_s);
    m.get<"_resolve_active_named_universe">()(m.get<"_auth_manager">());
    const Object existing = get_or_none<"_library_runtime">(runtime_module);
    if (existing.is_none())
        m.get<"_propagate_auth">()(m.get<"_auth_manager">(), kw<"strict">(strict));
    else
        inject_into_search_templates(m, existing, strict,
                                     "Failed to inject existing runtime into search_templates: %s"_s);
    return none();
}

}  // namespace

PyMethodDef functions::bring_up[] = {
    def<"_propagate_auth(am, strict=False)", propagate_auth,
        "Set _auth and runtime singletons on search_templates and simulate_signal.">(),
    def<"ensure_runtime_bootstrapped(strict=True)", ensure_runtime_bootstrapped,
        "Bootstrap the shared SDK runtime from cached register/login auth.\n"
        "\n"
        "Needs a register() or login() before it. Takes the configured universe, or else the first of the market's active\n"
        "era, builds the search runtime, unless sablecrest._runtime keeps one, and hands it to the search and simulation\n"
        "modules.\n"
        "\n"
        "strict (bool): raise RuntimeError for a step that fails; otherwise the failure is logged and the rest goes on.\n"
        "\n"
        "Raises, strict or not, auth.AuthError without a register() or login(); RuntimeError when the service gives no\n"
        "universe; TypeError or ValueError when it has to be asked and there is no market id;\n"
        "sync_backoff.SyncBackoffCancelled when the user cancels the synchronisation.">(),
    {}};

}  // namespace agent_onboarding
