/// \file The authenticated session and the runtime, handed over to the search and simulation modules.
///
/// Strict callers get an exception for every step that fails, others a log record and whatever could be brought up.
#include "parts.hpp"
#include "shared/log_failure.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

Object joined_detail(const Object& message, const Object& detail) {
    return truth(detail) ? fstring<"{}: {}">{message, detail} : message;
}

void set_active_manager(Module m, const Object& auth, const Object& am, const Object& strict) {
    log_failure_and(
        m, [&] { return auth.call<"_set_active_auth_manager">(am); },
        [&](const Object& exc) {
            if (truth(strict))
                raise_from(invoke{PyExc_RuntimeError, "SableCrest auth bootstrap failed after authentication."_s}, exc);
        },
        "Failed to set active auth manager: %s"_s);
}

/// The runtime that the package builds from the service; None where it builds none.
Object runtime_from_service(Module m, const Object& am, const Object& strict) {
    const Object sync_backoff = import_from(m, "sablecrest"_s, "sync_backoff"_s);
    const Object runtime_module = import_from(m, "sablecrest"_s, "_runtime"_s);
    return try_except(
        [&] {
            return invoke{runtime_module.attr<"bootstrap_runtime">(), am, m.get<"_config">(),
                          m.get<"_load_per_era_backtester">()};
        },
        [&](const Handling& except) -> Object {
            if (except.caught(sync_backoff.attr<"SyncBackoffCancelled">())) except.reraise();
            if (!except.caught(PyExc_Exception)) except.reraise();
            const Object detail = m.call<"_exception_chain_detail">(except.value());
            m.call<"logger.warning">("Failed to bootstrap sablecrest runtime: %s"_s, except.value());
            if (truth(strict))
                raise(PyExc_RuntimeError,
                      joined_detail("SableCrest registration authenticated, but runtime data bootstrap failed"_s,
                                    detail));
            return none;
        });
}

Object runtime_from_local_files(Module m, const Object& am) {
    preload_names<
        "_bootstrap_local_runtime_from_config">();  // what fails in the `try`, for lack of memory too, is logged
    return try_except([&] { return m.call<"_bootstrap_local_runtime_from_config">(am); }, {PyExc_Exception},
                      [&](const Handling& except) -> Object {
                          m.call<"logger.debug">("Failed to bootstrap local sablecrest runtime: %s"_s, except.value());
                          return none;
                      });
}

void inject_into_search_templates(Module m, const Object& runtime, const Object& strict, const Object& warning) {
    log_failure_and(
        m,
        [&] {
            m.call<"importlib.import_module">("sablecrest.search_templates"_s).set_attr<"_library_runtime">(runtime);
            return none;
        },
        [&](const Object&) {
            if (truth(strict)) raise(PyExc_RuntimeError, "SableCrest search runtime injection failed."_s);
        },
        warning);
}

Object default_vocabulary(const Object& runtime) {
    const Object vocabularies = attr_or_none<"vocabularies">(runtime);
    const Object universe = attr_or_none<"default_named_universe">(runtime);
    return truth(vocabularies) ? vocabularies.get(universe) : none;
}

Object vocabulary_loader(Module m, const Object& runtime) {
    Object load_vocabulary = attr_or_none<"load_vocabulary">(runtime);
    if (!load_vocabulary.is_none()) return load_vocabulary;
    return import_from(m, "sablecrest.obfuscation"_s, "load_vocabulary"_s);
}

void initialise_simulation(Module m, const Object& simulate_signal, const Object& am, const Object& runtime) {
    invoke{simulate_signal.attr<"init_simulate_signal">(),
           kw<"auth">(am),
           kw<"sync_manager">(attr_or_none<"sync_manager">(runtime)),
           kw<"vault">(attr_or_none<"vault">(runtime)),
           kw<"backtester">(attr_or_none<"raw_backtester">(runtime)),
           kw<"search_tracker">(attr_or_none<"search_tracker">(runtime)),
           kw<"era_thread">(attr_or_none<"era_thread">(runtime)),
           kw<"graph_validator">(attr_or_none<"graph_validator">(runtime)),
           kw<"compute_search_plan">(attr_or_none<"compute_search_plan">(attr_or_none<"evaluator">(runtime))),
           kw<"era_config">(attr_or_none<"era_config">(runtime)),
           kw<"load_vocabulary">(vocabulary_loader(m, runtime)),
           kw<"useful_signal_metadata">(attr_or_none<"useful_signal_metadata">(runtime)),
           kw<"load_found_signal_pnl">(attr_or_none<"load_found_signal_pnl">(runtime)),
           kw<"signal_dir">(attr_or_none<"signal_dir">(runtime)),
           kw<"make_batch_orchestrator_cls">(attr_or_none<"make_batch_orchestrator_cls">(runtime)),
           kw<"correlate_per_pool">(attr_or_none<"correlate_per_pool">(runtime)),
           kw<"compute_mi_per_pool">(attr_or_none<"compute_mi_per_pool">(runtime)),
           kw<"vocabulary">(default_vocabulary(runtime)),
           kw<"vocabulary_raw">(attr_or_none<"vocabulary_raw">(runtime)),
           kw<"runtime_freshness_guard">(attr_or_none<"runtime_freshness_guard">(runtime))};
}

/// `sablecrest.simulate_signal` shall be the function, but importing the submodule of that name has bound the submodule
/// there. The strict refusal is kept for the step around this one, which lets it pass.
void restore_top_level_export(Module m, const Object& simulate_signal, const Object& strict, Object& refusal) {
    log_failure_and(
        m,
        [&] {
            const Object exported = simulate_signal.attr<"_simulate_signal_export">();
            import_module(m, "sablecrest"_s).set_attr<"simulate_signal">(exported);
            return none;
        },
        [&](const Object&) {
            if (!truth(strict)) return;
            refusal = invoke{PyExc_RuntimeError, "SableCrest simulate exports bootstrap failed."_s};
            raise(refusal);
        },
        "Failed to restore top-level simulate exports: %s"_s);
}

void inject_into_simulate_signal(Module m, const Object& am, const Object& runtime, const Object& strict) {
    Object refusal = none;
    try_except(
        [&] {
            const Object simulate_signal = m.call<"importlib.import_module">("sablecrest.simulate_signal"_s);
            if (runtime.is_none()) raise(PyExc_RuntimeError, "private sablecrest runtime was not initialized"_s);
            initialise_simulation(m, simulate_signal, am, runtime);
            restore_top_level_export(m, simulate_signal, strict, refusal);
            return none;
        },
        {PyExc_Exception},
        [&](const Handling& except) {
            if (except.value().is(refusal)) except.reraise();
            m.call<"logger.warning">("Failed to initialize simulate_signal: %s"_s, except.value());
            const Object detail = m.call<"_exception_chain_detail">(except.value());
            if (truth(strict))
                raise(PyExc_RuntimeError, joined_detail("SableCrest simulate_signal bootstrap failed"_s, detail));
            return none;
        });
}

Object propagate_auth(Module m, const Object& am, const Object& strict) {
    const Object auth = import_from(m, "sablecrest"_s, "auth"_s);
    set_active_manager(m, auth, am, strict);

    Object runtime = runtime_from_service(m, am, strict);
    if (runtime.is_none()) runtime = runtime_from_local_files(m, am);
    if (runtime.is_none() && truth(strict))
        raise(PyExc_RuntimeError,
              "SableCrest registration authenticated, but runtime data bootstrap returned no runtime."_s);

    inject_into_search_templates(m, runtime, strict, "Failed to inject runtime into search_templates: %s"_s);
    inject_into_simulate_signal(m, am, runtime, strict);
    return none;
}

Object ensure_runtime_bootstrapped(Module m, const Object& strict) {
    if (m.get<"_auth_manager">().is_none()) {
        const Object auth = import_from(m, "sablecrest"_s, "auth"_s);
        raise(auth.call<"AuthError">("No wallet initialized. Call register() or login() first."_s));
    }

    const Object runtime_module = import_from(m, "sablecrest"_s, "_runtime"_s);
    invoke{m.get<"_resolve_active_named_universe">(), m.get<"_auth_manager">()};
    const Object existing = attr_or_none<"_library_runtime">(runtime_module);
    if (existing.is_none())
        invoke{m.get<"_propagate_auth">(), m.get<"_auth_manager">(), kw<"strict">(strict)};
    else
        inject_into_search_templates(m, existing, strict,
                                     "Failed to inject existing runtime into search_templates: %s"_s);
    return none;
}

}  // namespace

PyMethodDef functions::hand_over[] = {
    def<"_propagate_auth(am, strict=False)", propagate_auth,
        "Set _auth and runtime singletons on search_templates and simulate_signal.">(),
    def<"ensure_runtime_bootstrapped(strict=True)", ensure_runtime_bootstrapped,
        "Bootstrap the shared SDK runtime from cached register/login auth.">(),
    {}};

}  // namespace agent_onboarding
