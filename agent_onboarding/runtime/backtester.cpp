/// \file The backtester that ships inside the package, imported afresh for a data directory.
#include "parts.hpp"
#include "runtime/import_path.hpp"

namespace agent_onboarding {

using namespace py;

void define_backtester_names(Module m) {
    const Object& name = "sablecrest.simulator_engine.backtest"_s;
    const Object& parent = "sablecrest.simulator_engine"_s;
    m.set<"_BACKTEST_MODULE_NAMES">(tuple(name, name, name));
    m.set<"_BACKTEST_PARENT_MODULE_NAMES">(tuple(parent, parent, parent));
}

namespace {

Object forget_preloaded_backtester_modules(Module m) {
    for (const Object& name : iterate(m.get<"_BACKTEST_MODULE_NAMES">())) discard(m.get<"sys.modules">(), name);
    for (const Object& name : iterate(m.get<"_BACKTEST_PARENT_MODULE_NAMES">())) {
        const Object parent = m.get<"sys.modules">().lookup(name);
        if (!parent.is_none() && parent.find<"backtest">().has_value()) parent.remove<"backtest">();
    }
    return none();
}

/// The module itself or a package above it is missing, and not something that it needs.
Object module_not_found_is_candidate(Module, const Object& exc, const Object& module_name) {
    const Object missing = get_or_none<"name">(exc);
    if (!truth(missing)) return to_object(false);
    return to_object(missing == module_name || starts_with(module_name, missing, "."_s));
}

Object import_backtester_module(Module m) {
    Object last_missing = none();
    for (const Object& module_name : iterate(m.get<"_BACKTEST_MODULE_NAMES">())) {
        try {
            return m.call<"importlib.import_module">(module_name);
        } catch (const Error& error) {
            const Handling except{error};
            if (!except.caught(PyExc_ModuleNotFoundError)) throw;
            if (!truth(m.call<"_module_not_found_is_candidate">(except.value(), module_name))) throw;
            last_missing = except.value();
        }
    }
    const Object names = join(", "_s, m.get<"_BACKTEST_MODULE_NAMES">());
    raise_from(call(PyExc_ModuleNotFoundError, text<"No wheel-bundled backtester module found; tried {}">(names)),
               last_missing);
}

Object load_per_era_backtester(Module m, const Object& data_dir, const Keywords&) {
    put_on_import_path(m, m.call<"_canonical_data_dir">(data_dir));
    if (m.get<"sys.modules">().lookup<"era_data">().is_none())
        m.call<"logger.debug">("Era data module is not loaded for data dir %s"_s, data_dir);

    m.call<"_forget_preloaded_backtester_modules">();
    Object module = m.call<"_import_backtester_module">();
    m.get<"logger.info">()("Loaded wheel-bundled backtester %s for data dir %s"_s, module.get<"__name__">(), data_dir);
    return module;
}

}  // namespace

PyMethodDef functions::backtester[] = {
    def<"_forget_preloaded_backtester_modules()", forget_preloaded_backtester_modules>(),
    def<"_module_not_found_is_candidate(exc, module_name)", module_not_found_is_candidate>(),
    def<"_import_backtester_module()", import_backtester_module>(),
    def<"_load_per_era_backtester(data_dir, **kwargs)", load_per_era_backtester,
        "Load the wheel-bundled canonical backtester.">(),
    {}};

}  // namespace agent_onboarding
