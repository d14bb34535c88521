/// \file The older `src` names of the package, under which runtime modules import it, and the legacy core module.
#include "parts.hpp"
#include "python/blocks.hpp"
#include "python/bytes.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

Object new_package(Module m, const Object& name) {
    Object package = m.call<"types.ModuleType">(name);
    package.set<"__path__">(list());
    package.set<"__package__">(name);
    m.get<"sys.modules">().set_item(name, package);
    return package;
}

Object ensure_package_module(Module m, const Object& name) {
    Object module = m.get<"sys.modules">().lookup(name);
    if (module.is_none())
        module = suppress(PyExc_Exception, [&] { return m.call<"importlib.import_module">(name); }).value_or(none());
    if (module.is_none() || !module.find<"__path__">().has_value()) module = new_package(m, name);

    if (const auto names = split_last(name, "."_s)) {
        const auto& [parent_name, child_name] = *names;
        const Object parent = m.get<"sys.modules">().lookup(parent_name);
        if (!parent.is_none()) parent.set(child_name, module);
    }
    return module;
}

Object legacy_src_module_name(Module, const Positional& parts) { return join("."_s, parts); }

/// The paths, then the package's directories that are not among them by real path.
Object with_package_directories(Module m, const Object& paths, const Object& package) {
    Object result = list_of(paths);
    const Object known = set();
    for (const Object& path : iterate(result)) add(known, m.call<"os.path.realpath">(path));
    for (const Object& package_path : iterate(list_of(package.get<"__path__">()))) {
        const Object path = m.call<"os.path.realpath">(package_path);
        if (contains(known, path)) continue;
        append(result, package_path);
        add(known, path);
    }
    return result;
}

Object src_module(Module m) {
    Object src = m.get<"sys.modules">().lookup<"src">();
    if (!src.is_none()) return src;
    try {
        return m.call<"importlib.import_module">("src"_s);
    } catch (const Error& error) {
        const Handling except{error};
        if (!except.caught(PyExc_Exception)) throw;
        return m.call<"types.ModuleType">("src"_s);
    }
}

Object ensure_legacy_src_namespace_alias(Module m) {
    const std::optional<Object> package = suppress(PyExc_Exception, [&] { return import_module(m, "sablecrest"_s); });
    if (!package.has_value()) return none();

    const Object src = src_module(m);
    const Object paths = src.find<"__path__">().value_or(list());
    src.set<"__path__">(with_package_directories(m, paths, *package));
    src.set<"__package__">("src"_s);
    m.get<"sys.modules">().set_item("src"_s, src);

    m.call<"_ensure_legacy_src_obfuscation_core_alias">(src);
    return none();
}

Outcome positive_integer(const Object& value, const Object& name) {
    if (!value.is_int()) return refused(PyExc_TypeError, text<"{} must be an integer, got {}">(name, type_name(value)));
    if (compare(value, Py_LE, to_object(0)))
        return refused(PyExc_ValueError, text<"{} must be positive, got {}">(name, value));
    return value;
}

Outcome era_number_identity_salt(Module, const Object& market_id, const Object& era_number) {
    if (positive_integer(market_id, "market_id"_s).is_refusal()) return Outcome::refusal();
    if (positive_integer(era_number, "era_number"_s).is_refusal()) return Outcome::refusal();
    return eight_bytes_each(market_id, era_number);
}

PyMethodDef identity_salt_entry = def<"era_number_identity_salt(market_id, era_number)", era_number_identity_salt>();
PyMethodDef salt_entry = def<"era_salt(market_id, era_number)", era_number_identity_salt>();

Object ensure_legacy_src_obfuscation_core_alias(Module m, const Object& src_module) {
    const auto legacy_name = [m](const auto&... parts) { return m.call<"_legacy_src_module_name">(parts...); };

    const Object package = m.get<"_ensure_package_module">()(legacy_name("src"_s, "obfuscation"_s));
    src_module.set<"obfuscation">(package);
    m.get<"_ensure_package_module">()(legacy_name("src"_s, "obfuscation"_s, "layers"_s));
    const Object shared_name = legacy_name("src"_s, "obfuscation"_s, "layers"_s, "shared"_s);
    m.call<"_ensure_package_module">(shared_name);
    const Object core_name = legacy_name("src"_s, "obfuscation"_s, "layers"_s, "shared"_s, "_core"_s);

    Object core = m.get<"sys.modules">().lookup(core_name);
    if (core.is_none()) core = m.call<"types.ModuleType">(core_name);
    core.set<"era_number_identity_salt">(function(m, identity_salt_entry));
    core.set<"era_salt">(function(m, salt_entry));

    core.set<"__package__">(shared_name);
    m.get<"sys.modules">().set_item(core_name, core);
    const Object package_name = import_module(m, "sablecrest"_s).get<"__package__">();
    const Object package_core_name = legacy_name(package_name, "obfuscation"_s, "layers"_s, "shared"_s, "_core"_s);
    m.get<"sys.modules">().set_item(package_core_name, core);
    const Object shared = m.get<"sys.modules">().lookup(shared_name);
    if (!shared.is_none()) shared.set<"_core">(core);
    return none();
}

}  // namespace

PyMethodDef functions::aliases[] = {
    def<"_ensure_legacy_src_namespace_alias()", ensure_legacy_src_namespace_alias>(),
    def<"_ensure_package_module(name)", ensure_package_module>(),
    def<"_legacy_src_module_name(*parts)", legacy_src_module_name>(),
    def<"_ensure_legacy_src_obfuscation_core_alias(src_module)", ensure_legacy_src_obfuscation_core_alias>(),
    {}};

}  // namespace agent_onboarding
