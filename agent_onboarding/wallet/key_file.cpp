/// \file The wallet key file: where it lies, and the checks that keep it from being read or written through a link, a
/// special file, somebody else's file, or a file that others can read.
#include "parts.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

constexpr int owner_only = 0600;
constexpr int group_and_others = 0077;

Object cannot_read(const Object& path) { return fstring<"Cannot read wallet from {}. Check file permissions.">{path}; }

Object cannot_write(const Object& path) {
    return fstring<"Cannot write wallet to {}. Check directory permissions.">{path};
}

[[noreturn]] void refuse_unsafe_wallet(Module m, const Object& path) { raise(m.call<"_unsafe_wallet_error">(path)); }

void refuse_foreign_owner(Module m, const Object& path, const Object& st) {
    if (!m.has<"os.getuid">()) return;
    const Object owner = st.attr<"st_uid">();
    if (owner != m.call<"os.getuid">()) refuse_unsafe_wallet(m, path);
}

bool is_regular_file(Module m, const Object& st) {
    return truth(invoke{m.get<"_stat.S_ISREG">(), st.attr<"st_mode">()});
}

void refuse_link_or_special_file(Module m, const Object& path, const Object& st) {
    if (truth(invoke{m.get<"_stat.S_ISLNK">(), st.attr<"st_mode">()}) || !is_regular_file(m, st))
        refuse_unsafe_wallet(m, path);
}

/// Refuses what lies at the path by its own status, a link's and not its target's.
void check_wallet_path(Module m, const Object& path, Object (*failure)(const Object& path)) {
    const Object st = try_except([&] { return m.call<"os.lstat">(path); }, {PyExc_OSError},
                                 [&](const Handling&) -> Object { raise(PyExc_OSError, failure(path)); });
    refuse_link_or_special_file(m, path, st);
    refuse_foreign_owner(m, path, st);
}

Object without_following_links(Module m, Object flags) {
    if (m.has<"os.O_NOFOLLOW">()) flags = flags | m.get<"os.O_NOFOLLOW">();
    return flags;
}

Object wallet_key_path(Module m, const Object& data_dir) {
    return invoke{m.get<"os.path.join">(), m.call<"_canonical_data_dir">(data_dir), "wallet.key"_s};
}

Object unsafe_wallet_error(Module, const Object& path) {
    return invoke{PyExc_OSError, fstring<"Unsafe wallet key at {}. Refusing to use wallet.key with unsafe ownership, "
                                         "type, or permissions.">{path}};
}

Object check_wallet_fd(Module m, const Object& wallet_path, const Object& fd) {
    const Object st = m.call<"os.fstat">(fd);
    if (!is_regular_file(m, st)) refuse_unsafe_wallet(m, wallet_path);
    refuse_foreign_owner(m, wallet_path, st);
    const Object mode = st.attr<"st_mode">();
    if (truth(mode & to_object(group_and_others))) m.call<"os.fchmod">(fd, owner_only);
    return none;
}

/// The path passed the checks, so a file that still cannot be opened counts as unsafe: a link put there meanwhile, or a
/// file that we may not read.
Object open_for_reading(Module m, const Object& path) {
    const Object flags = without_following_links(m, m.get<"os.O_RDONLY">());
    return try_except([&] { return m.call<"os.open">(path, flags); }, {PyExc_OSError},
                      [&](const Handling&) -> Object { refuse_unsafe_wallet(m, path); });
}

Object read_wallet_key(Module m, const Object& data_dir) {
    const Object path = m.call<"_wallet_key_path">(data_dir);
    if (!truth(m.call<"os.path.exists">(path))) return none;
    check_wallet_path(m, path, cannot_read);

    preload_names<"os.close">();  // closing needs them, also when memory has run out
    Object fd = open_for_reading(m, path);
    return try_finally(
        [&] {
            m.call<"_check_wallet_fd">(path, fd);
            return with(m.call<"os.fdopen">(fd, "r"_s), [&](const Object& file) {
                fd = none;  // the file object closes it from here on
                return strip(file.call<"read">());
            });
        },
        [&] {
            if (!fd.is_none()) m.call<"os.close">(fd);
        });
}

Object overwrite(Module m, const Object& path, const Object& key_content) {
    Object flags = m.get<"os.O_WRONLY">();
    flags = flags | m.get<"os.O_CREAT">();
    flags = without_following_links(m, flags | m.get<"os.O_TRUNC">());
    preload_names<"os.close">();  // closing needs them, also when memory has run out
    const Object fd = m.call<"os.open">(path, flags, owner_only);
    try_finally(
        [&] {
            m.call<"_check_wallet_fd">(path, fd);
            m.call<"os.fchmod">(fd, owner_only);
            return invoke{m.get<"os.write">(), fd, key_content.call<"encode">("utf-8"_s)};
        },
        [&] { m.call<"os.close">(fd); });
    m.call<"os.chmod">(path, owner_only);
    return none;
}

Object write_wallet_key(Module m, const Object& data_dir, const Object& key_content) {
    const Object directory = m.call<"_canonical_data_dir">(data_dir);
    m.call<"os.makedirs">(directory, kw<"exist_ok">(true));
    const Object path = m.call<"_wallet_key_path">(directory);
    if (truth(m.call<"os.path.exists">(path))) check_wallet_path(m, path, cannot_write);

    return try_except([&] { return overwrite(m, path, key_content); }, {PyExc_OSError},
                      [&](const Handling&) -> Object { raise(PyExc_OSError, cannot_write(path)); });
}

}  // namespace

PyMethodDef functions::key_file[] = {
    def<"_wallet_key_path(data_dir)", wallet_key_path,
        "Return canonical wallet.key path under the canonical data directory.">(),
    def<"_unsafe_wallet_error(path)", unsafe_wallet_error>(),
    def<"_check_wallet_fd(wallet_path, fd)", check_wallet_fd,
        "Validate an opened wallet.key fd and tighten permissions.">(),
    def<"_read_wallet_key(data_dir)", read_wallet_key,
        "Read existing wallet.key after symlink/type/owner/permission checks.">(),
    def<"_write_wallet_key(data_dir, key_content)", write_wallet_key,
        "Write private key to wallet.key with 0600 permissions.\n\n    Raises IOError with exact L2 message format on "
        "failure.\n">(),
    {}};

}  // namespace agent_onboarding
