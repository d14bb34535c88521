/// \file The older `src` names of the package, under which runtime modules import it, and the legacy core module.
#include "parts.hpp"
#include "runtime/identity_salt.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

Object new_package(Module m, const Object& name) {
    Object package = m.call<"types.ModuleType">(name);
    package.set_attr<"__path__">(list{});
    package.set_attr<"__package__">(name);
    m.get<"sys.modules">().set_item(name, package);
    return package;
}

Object ensure_package_module(Module m, const Object& name) {
    Object module = m.get<"sys.modules">().get(name);
    if (module.is_none())
        module = suppress(PyExc_Exception, [&] { return m.call<"importlib.import_module">(name); }).value_or(none);
    if (module.is_none() || !module.find_attr<"__path__">().has_value()) module = new_package(m, name);

    const auto [parent_name, separator, child_name] = unpack<3>(name.call<"rpartition">("."_s));
    if (truth(parent_name)) {
        const Object parent = m.get<"sys.modules">().get(parent_name);
        if (!parent.is_none()) parent.set_attr(child_name, module);
    }
    return module;
}

Object legacy_src_module_name(Module, const Object& parts) { return join("."_s, parts); }

/// The paths, then the package's directories that are not among them by real path.
Object with_package_directories(Module m, const Object& paths, const Object& package) {
    Object result = list_of(paths);
    const Object known = set{};
    for (const Object& path : iterate(result)) add(known, m.call<"os.path.realpath">(path));
    for (const Object& package_path : iterate(list_of(package.find_attr<"__path__">().value_or(list{})))) {
        const Object path = m.call<"os.path.realpath">(package_path);
        if (contains(known, path)) continue;
        append(result, package_path);
        add(known, path);
    }
    return result;
}

Object src_module(Module m) {
    Object src = m.get<"sys.modules">().get<"src">();
    if (!src.is_none()) return src;
    return try_except([&] { return m.call<"importlib.import_module">("src"_s); }, {PyExc_Exception},
                      [&](const Handling&) { return m.call<"types.ModuleType">("src"_s); });
}

Object ensure_legacy_src_namespace_alias(Module m) {
    const auto package = suppress(PyExc_Exception, [&] { return import_module(m, "sablecrest"_s); });
    if (!package.has_value()) return none;

    const Object src = src_module(m);
    const Object paths = src.find_attr<"__path__">().value_or(list{});
    src.set_attr<"__path__">(with_package_directories(m, paths, *package));
    src.set_attr<"__package__">("src"_s);
    m.get<"sys.modules">().set_item("src"_s, src);

    m.call<"_ensure_legacy_src_obfuscation_core_alias">(src);
    return none;
}

/// The package's `__package__`, or its `__name__` where that is missing or None; None where it has neither.
Object package_name(Module m) {
    const Object package = import_module(m, "sablecrest"_s);
    const Object name = attr_or_none<"__package__">(package);
    return name.is_none() ? attr_or_none<"__name__">(package) : name;
}

Object ensure_legacy_src_obfuscation_core_alias(Module m, const Object& src_module) {
    const auto legacy_name = [m](const auto&... parts) { return m.call<"_legacy_src_module_name">(parts...); };

    const Object package = invoke{m.get<"_ensure_package_module">(), legacy_name("src"_s, "obfuscation"_s)};
    src_module.set_attr<"obfuscation">(package);
    invoke{m.get<"_ensure_package_module">(), legacy_name("src"_s, "obfuscation"_s, "layers"_s)};
    const Object shared_name = legacy_name("src"_s, "obfuscation"_s, "layers"_s, "shared"_s);
    m.call<"_ensure_package_module">(shared_name);
    const Object core_name = legacy_name("src"_s, "obfuscation"_s, "layers"_s, "shared"_s, "_core"_s);

    Object core = m.get<"sys.modules">().get(core_name);
    if (core.is_none()) core = m.call<"types.ModuleType">(core_name);
    core.set_attr<"era_number_identity_salt">(function(m, identity_salt_entry));
    core.set_attr<"era_salt">(function(m, salt_entry));

    core.set_attr<"__package__">(shared_name);
    m.get<"sys.modules">().set_item(core_name, core);
    const Object package_prefix = package_name(m);
    if (!package_prefix.is_none()) {
        const Object second_name = legacy_name(package_prefix, "obfuscation"_s, "layers"_s, "shared"_s, "_core"_s);
        m.get<"sys.modules">().set_item(second_name, core);
    }
    const Object shared = m.get<"sys.modules">().get(shared_name);
    if (!shared.is_none()) shared.set_attr<"_core">(core);
    return none;
}

}  // namespace

PyMethodDef functions::aliases[] = {
    def<"_ensure_legacy_src_namespace_alias()", ensure_legacy_src_namespace_alias>(),
    def<"_ensure_package_module(name)", ensure_package_module>(),
    def<"_legacy_src_module_name(*parts)", legacy_src_module_name>(),
    def<"_ensure_legacy_src_obfuscation_core_alias(src_module)", ensure_legacy_src_obfuscation_core_alias>(),
    {}};

}  // namespace agent_onboarding
