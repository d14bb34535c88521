/// \file Digests, content-addressed copies of runtime modules, and the execution of such a copy.
#include "parts.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

constexpr int chunk_bytes = 1024 * 1024;
constexpr Py_ssize_t digest_prefix = 16;

Object sha256_file(Module m, const Object& path) {
    const Object hasher = m.call<"hashlib.sha256">();
    const Object end_of_file = invoke{type(PyBytes_Type)};
    with(m.call<"open">(path, "rb"_s), [&](const Object& file) {
        Object chunk = file.call<"read">(chunk_bytes);
        while (chunk != end_of_file) {
            hasher.call<"update">(chunk);
            chunk = file.call<"read">(chunk_bytes);
        }
        return none;
    });
    return hasher.call<"hexdigest">();
}

Object directory_of_real_path(Module m, const Object& path) {
    return invoke{m.get<"os.path.dirname">(), m.call<"os.path.realpath">(path)};
}

/// A copy that exists is trusted by its name. A hard link where the file system has them.
Object content_addressed_extension_path(Module m, const Object& module_name, const Object& path, const Object& digest) {
    const Object root = directory_of_real_path(m, path);
    Object runtime_path = invoke{m.get<"os.path.join">(), root,
                                 fstring<".sablecrest-runtime-{}-{}.so">{module_name, slice_to(digest, digest_prefix)}};
    if (truth(m.call<"os.path.exists">(runtime_path))) return runtime_path;
    try_except([&] { return m.call<"os.link">(path, runtime_path); }, {PyExc_OSError},
               [&](const Handling&) { return m.call<"shutil.copy2">(path, runtime_path); });
    return runtime_path;
}

/// Pairs of path and modification time, in listing order; what vanishes meanwhile is left out. Nothing where the
/// directory cannot be listed.
std::optional<Object> copies_in_directory(Module m, const Object& root, const Object& prefix) {
    const std::optional<Object> names = suppress(PyExc_OSError, [&] { return m.call<"os.listdir">(root); });
    if (!names.has_value()) return std::nullopt;
    Object copies = list{};
    for (const Object& name : iterate(*names)) {
        if (!starts_with(name, prefix) || !ends_with(name, ".so"_s)) continue;
        const Object path = m.call<"os.path.join">(root, name);
        const std::optional<Object> st = suppress(PyExc_OSError, [&] { return m.call<"os.stat">(path); });
        if (st.has_value()) append(copies, tuple{path, st->attr<"st_mtime_ns">()});
    }
    return copies;
}

/// The copy in use and the newest others, up to the limit.
Object copies_to_keep(Module m, const Object& keep_real, const Object& copies, const Object& max_copies) {
    Object keep = set{keep_real};
    const Object newest_first = sorted_by(copies, Order::descending, element<1>);
    for (const Object& copy : iterate(newest_first)) {
        if (compare(to_object(size(keep)), Py_GE, max_copies)) break;
        const Object path = element<0>(copy);
        add(keep, m.call<"os.path.realpath">(path));
    }
    return keep;
}

Object prune_runtime_extension_copies(Module m, const Object& module_name, const Object& keep_path,
                                      const Object& max_copies) {
    const Object root = directory_of_real_path(m, keep_path);
    const Object prefix = fstring<".sablecrest-runtime-{}-">{module_name};
    const Object keep_real = m.call<"os.path.realpath">(keep_path);
    const std::optional<Object> copies = copies_in_directory(m, root, prefix);
    if (!copies.has_value() || compare(to_object(size(*copies)), Py_LE, max_copies)) return none;

    const Object keep = copies_to_keep(m, keep_real, *copies, max_copies);
    for (const Object& copy : iterate(*copies)) {
        const Object path = element<0>(copy);
        if (contains(keep, m.call<"os.path.realpath">(path))) continue;
        suppress(PyExc_OSError, [&] { return m.call<"os.unlink">(path); });
    }
    return none;
}

bool is_loaded_copy(const Object& module, const Object& runtime_path, const Object& digest) {
    return !module.is_none() && attr_or_none<"__file__">(module) == runtime_path &&
           attr_or_none<"_sablecrest_module_sha256">(module) == digest;
}

/// Puts back what was registered before, unless somebody has registered something else meanwhile.
void restore_registration(Module m, const Object& module_name, const Object& module, const Object& previous) {
    if (!m.get<"sys.modules">().get(module_name).is(module)) return;
    if (!previous.is_none())
        m.get<"sys.modules">().set_item(module_name, previous);
    else
        discard(m.get<"sys.modules">(), module_name);
}

Object load_extension_from_path(Module m, const Object& module_name, const Object& path) {
    const Object digest = m.call<"_sha256_file">(path);
    const Object runtime_path = m.call<"_content_addressed_extension_path">(module_name, path, digest);
    Object previous = m.get<"sys.modules">().get(module_name);
    if (is_loaded_copy(previous, runtime_path, digest)) return previous;

    const Object import_spec = m.call<"importlib.util.spec_from_file_location">(module_name, runtime_path);
    if (import_spec.is_none() || import_spec.attr<"loader">().is_none())
        raise(PyExc_RuntimeError, fstring<"Could not create import spec for {}">{runtime_path});
    Object module = m.call<"importlib.util.module_from_spec">(import_spec);
    m.get<"sys.modules">().set_item(module_name, module);

    return try_except(
        [&] {
            import_spec.attr<"loader">().call<"exec_module">(module);
            module.set_attr<"_sablecrest_module_sha256">(digest);
            module.set_attr<"_sablecrest_module_source_path">(m.call<"os.path.realpath">(path));
            m.call<"_prune_runtime_extension_copies">(module_name, runtime_path);
            return module;
        },
        {PyExc_Exception},
        [&](const Handling& except) -> Object {
            restore_registration(m, module_name, module, previous);
            except.reraise();
        });
}

}  // namespace

PyMethodDef functions::module_copies[] = {
    def<"_sha256_file(path)", sha256_file>(),
    def<"_content_addressed_extension_path(module_name, path, digest)", content_addressed_extension_path>(),
    def<"_prune_runtime_extension_copies(module_name, keep_path, *, max_copies=2)", prune_runtime_extension_copies>(),
    def<"_load_extension_from_path(module_name, path)", load_extension_from_path>(),
    {}};

}  // namespace agent_onboarding
