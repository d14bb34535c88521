/// \file The wallet key file: where it lies, and the checks that keep it from being read or written through a link, a
/// special file, somebody else's file, or a file that others can read.
#include "parts.hpp"
#include "python/blocks.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

constexpr int owner_only = 0600;
constexpr int group_and_others = 0077;

Object cannot_read(const Object& path) { return text<"Cannot read wallet from {}. Check file permissions.">(path); }

Object cannot_write(const Object& path) {
    return text<"Cannot write wallet to {}. Check directory permissions.">(path);
}

[[noreturn]] void refuse_unsafe_wallet(Module m, const Object& path) { raise(m.call<"_unsafe_wallet_error">(path)); }

void refuse_foreign_owner(Module m, const Object& path, const Object& st) {
    if (!m.has<"os.getuid">()) return;
    const Object owner = st.get<"st_uid">();
    if (owner != m.call<"os.getuid">()) refuse_unsafe_wallet(m, path);
}

bool is_regular_file(Module m, const Object& st) { return truth(m.get<"_stat.S_ISREG">()(st.get<"st_mode">())); }

void refuse_link_or_special_file(Module m, const Object& path, const Object& st) {
    if (truth(m.get<"_stat.S_ISLNK">()(st.get<"st_mode">())) || !is_regular_file(m, st)) refuse_unsafe_wallet(m, path);
}

/// Refuses what lies at the path by its own status, a link's and not its target's.
void check_wallet_path(Module m, const Object& path, Object (*failure)(const Object& path)) {
    Object st = none();
    try {
        st = m.call<"os.lstat">(path);
    } catch (const Error& error) {
        const Handling except{error};
        if (!except.caught(PyExc_OSError)) throw;
        raise(PyExc_OSError, failure(path));
    }
    refuse_link_or_special_file(m, path, st);
    refuse_foreign_owner(m, path, st);
}

Object without_following_links(Module m, Object flags) {
    if (m.has<"os.O_NOFOLLOW">()) flags |= m.get<"os.O_NOFOLLOW">();
    return flags;
}

Object canonical_data_dir(Module m, const Object& data_dir) {
    return str(m.call<"resolve_data_dir">(data_dir, kw<"ensure">(false)));
}

Object wallet_key_path(Module m, const Object& data_dir) {
    const Object join_path = m.get<"os.path.join">();
    return join_path(m.call<"_canonical_data_dir">(data_dir), "wallet.key"_s);
}

Object unsafe_wallet_error(Module, const Object& path) {
    return call(PyExc_OSError, text<"Unsafe wallet key at {}. Refusing to use wallet.key with unsafe ownership, type, "
                                    "or permissions.">(path));
}

Object check_wallet_fd(Module m, const Object& wallet_path, const Object& fd) {
    const Object st = m.call<"os.fstat">(fd);
    if (!is_regular_file(m, st)) refuse_unsafe_wallet(m, wallet_path);
    refuse_foreign_owner(m, wallet_path, st);
    if (truth(st.get<"st_mode">() & to_object(group_and_others))) m.call<"os.fchmod">(fd, owner_only);
    return none();
}

/// Whatever keeps the file from being opened is refused: it was swapped after the check.
Object open_for_reading(Module m, const Object& path) {
    const Object flags = without_following_links(m, m.get<"os.O_RDONLY">());
    try {
        return m.call<"os.open">(path, flags);
    } catch (const Error& error) {
        const Handling except{error};
        if (!except.caught(PyExc_OSError)) throw;
        refuse_unsafe_wallet(m, path);
    }
}

Object read_wallet_key(Module m, const Object& data_dir) {
    const Object path = m.call<"_wallet_key_path">(data_dir);
    if (!truth(m.call<"os.path.exists">(path))) return none();
    check_wallet_path(m, path, cannot_read);

    intern<"os.close">();
    Object fd = open_for_reading(m, path);
    return try_finally(
        [&] {
            m.call<"_check_wallet_fd">(path, fd);
            return with(m.call<"os.fdopen">(fd, "r"_s), [&](const Object& file) {
                fd = none();  // the file object closes it from here on
                return strip(file.call<"read">());
            });
        },
        [&] {
            if (!fd.is_none()) m.call<"os.close">(fd);
        });
}

void overwrite(Module m, const Object& path, const Object& key_content) {
    const Object create = m.get<"os.O_WRONLY">() | m.get<"os.O_CREAT">();
    const Object flags = without_following_links(m, create | m.get<"os.O_TRUNC">());
    intern<"os.close">();
    const Object fd = m.call<"os.open">(path, flags, owner_only);
    try_finally(
        [&] {
            m.call<"_check_wallet_fd">(path, fd);
            m.call<"os.fchmod">(fd, owner_only);
            const Object write = m.get<"os.write">();
            return write(fd, key_content.call<"encode">("utf-8"_s));
        },
        [&] { m.call<"os.close">(fd); });
    m.call<"os.chmod">(path, owner_only);
}

Object write_wallet_key(Module m, const Object& data_dir, const Object& key_content) {
    const Object directory = m.call<"_canonical_data_dir">(data_dir);
    m.call<"os.makedirs">(directory, kw<"exist_ok">(true));
    const Object path = m.call<"_wallet_key_path">(directory);
    if (truth(m.call<"os.path.exists">(path))) check_wallet_path(m, path, cannot_write);

    try {
        overwrite(m, path, key_content);
    } catch (const Error& error) {
        const Handling except{error};
        if (!except.caught(PyExc_OSError)) throw;
        raise(PyExc_OSError, cannot_write(path));
    }
    return none();
}

Object normalize_key(Module, const Object& raw_key) {
    if (starts_with(raw_key, "0x"_s) || starts_with(raw_key, "0X"_s)) return raw_key;
    return "0x"_s + raw_key;
}

}  // namespace

PyMethodDef functions::key_prefix[] = {
    def<"_normalize_key(raw_key)", normalize_key, "Ensure private key has 0x prefix for AuthManager.">(), {}};

PyMethodDef functions::data_directory[] = {
    def<"_canonical_data_dir(data_dir)", canonical_data_dir, "Return the expanded canonical data directory path.">(),
    {}};

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
