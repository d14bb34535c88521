/// \file The backtester that ships inside the package, imported afresh for a data directory.
#include "parts.hpp"
#include "runtime/import_path.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

Object forget_preloaded_backtester_modules(Module m) {
    for (const Object& name : iterate(m.get<"_BACKTEST_MODULE_NAMES">())) discard(m.get<"sys.modules">(), name);
    for (const Object& name : iterate(m.get<"_BACKTEST_PARENT_MODULE_NAMES">())) {
        const Object parent = m.get<"sys.modules">().get(name);
        if (parent.is_none() || !parent.find_attr<"backtest">().has_value()) continue;
        // A parent that answers by `__getattr__` has nothing to delete.
        suppress(PyExc_AttributeError, [&] {
            parent.del_attr<"backtest">();
            return none;
        });
    }
    return none;
}

/// The module itself or a package above it is missing, and not something that it needs.
Object module_not_found_is_candidate(Module, const Object& exc, const Object& module_name) {
    const Object missing = attr_or_none<"name">(exc);
    if (!truth(missing)) return to_object(false);
    if (missing == module_name) return to_object(true);
    return to_object(starts_with(module_name, missing + "."_s));
}

Object import_backtester_module(Module m) {
    Object last_missing = none;
    for (const Object& module_name : iterate(m.get<"_BACKTEST_MODULE_NAMES">())) {
        const auto module = try_except(
            [&] { return std::optional{m.call<"importlib.import_module">(module_name)}; }, {PyExc_ModuleNotFoundError},
            [&](const Handling& except) -> std::optional<Object> {
                if (!truth(m.call<"_module_not_found_is_candidate">(except.value(), module_name))) except.reraise();
                last_missing = except.value();
                return std::nullopt;
            });
        if (module.has_value()) return *module;
    }
    const Object names = join(", "_s, m.get<"_BACKTEST_MODULE_NAMES">());
    raise_from(invoke{PyExc_ModuleNotFoundError, fstring<"No wheel-bundled backtester module found; tried {}">{names}},
               last_missing);
}

Object load_per_era_backtester(Module m, const Object& data_dir, const Object& /*ignored*/) {
    put_on_import_path(m, m.call<"_canonical_data_dir">(data_dir));
    if (m.get<"sys.modules">().get<"era_data">().is_none())
        m.call<"logger.debug">("Era data module is not loaded for data dir %s"_s, data_dir);

    m.call<"_forget_preloaded_backtester_modules">();
    Object module = m.call<"_import_backtester_module">();
    invoke{m.get<"logger.info">(), "Loaded wheel-bundled backtester %s for data dir %s"_s, module.attr<"__name__">(),
           data_dir};
    return module;
}

}  // namespace

Object make_backtest_module_names(Module) {
    const Object& name = "sablecrest.simulator_engine.backtest"_s;
    return tuple{name, name, name};
}

Object make_backtest_parent_module_names(Module) {
    const Object& name = "sablecrest.simulator_engine"_s;
    return tuple{name, name, name};
}

PyMethodDef functions::backtester[] = {
    def<"_forget_preloaded_backtester_modules()", forget_preloaded_backtester_modules>(),
    def<"_module_not_found_is_candidate(exc, module_name)", module_not_found_is_candidate>(),
    def<"_import_backtester_module()", import_backtester_module>(),
    def<"_load_per_era_backtester(data_dir, **kwargs)", load_per_era_backtester,
        "Load the wheel-bundled canonical backtester.">(),
    {}};

}  // namespace agent_onboarding
