/// \file `register` and `login`: an agent's identity on the service.
#include "parts.hpp"
#include "shared/log_failure.hpp"
#include "shared/options.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

Object unreachable() { return "Cannot reach SableCrest server. Check your network connection and try again."_s; }
Object invalid_key() { return "Invalid private key format. Expected hex string (64 characters) or 32 bytes."_s; }

Object normalize_key(Module, const Object& raw_key) {
    if (starts_with(raw_key, "0x"_s) || starts_with(raw_key, "0X"_s)) return raw_key;
    return "0x"_s + raw_key;
}

Object resolve_invite_code(Module m, Object invite_code) {
    if (invite_code.is_none()) invite_code = option<"invite_code">(m);
    Object resolved = m.call<"auth._normalize_invite_code">(invite_code);
    if (resolved.is_none())
        raise(PyExc_ValueError, "Invite code required. Pass --invite-code, set invite_code in settings.yaml, or call "
                                "register(invite_code=...)."_s);
    return resolved;
}

Object resolve_optional_invite_code(Module m, const Object& invite_code) {
    return m.call<"auth._normalize_invite_code">(invite_code);
}

Object settle_data_dir(Module m, const Object& data_dir) {
    Object directory = m.call<"_canonical_data_dir">(data_dir);
    set_option<"data_dir">(m, directory);
    return directory;
}

Object configured_market_id(Module m) {
    return try_except([&] { return as_int(option<"market_id">(m)); }, {PyExc_TypeError, PyExc_ValueError},
                      [](const Handling&) { return to_object(0); });
}

void require_positive_market_id(Module m) {
    if (configured_market_id(m) <= 0)
        raise(PyExc_ValueError, "Runtime bootstrap requires an explicit positive market_id. Set 'market_id' to a "
                                "positive integer in ~/.sablecrest/settings.yaml (run `sablecrest init` to add the "
                                "field)."_s);
}

bool is_acknowledged(const Object& manager) {
    if (manager.is_none()) return false;
    const std::optional<Object> acknowledged = manager.find_attr<"_registration_acknowledged">();
    return acknowledged.has_value() && truth(*acknowledged);
}

/// The ladder of handlers around a registration. `manager` is None where its construction failed.
[[noreturn]] void refuse_registration(Module m, const Handling& except, const Object& manager, const Object& directory,
                                      const Object& private_key, bool is_new) {
    if (except.caught(PyExc_ConnectionError)) raise(PyExc_ConnectionError, unreachable());
    if (except.caught(m.get<"auth.RegistrationError">()))
        raise(invoke{m.get<"auth.RegistrationError">(),
                     fstring<"Registration failed: {}. Contact support if this persists.">{except.value()}});
    if (except.caught(m.get<"auth.InvalidKeyError">())) raise(PyExc_ValueError, invalid_key());
    // The server has accepted the new wallet: store its key although the call fails. After the errors handled above,
    // such as ConnectionError, it is lost.
    if (except.caught(PyExc_Exception) && is_new && is_acknowledged(manager))
        m.call<"_write_wallet_key">(directory, private_key);
    except.reraise();
}

Object authenticate_registration(Module m, const Object& directory, const Object& private_key,
                                 const Object& invite_code, bool is_new) {
    const Object key = m.call<"_normalize_key">(private_key);
    // The handlers need these, also when memory has run out.
    preload_names<"auth.RegistrationError", "auth.InvalidKeyError", "_registration_acknowledged",
                  "_write_wallet_key">();
    Object manager = none;
    return try_except(
        [&] {
            manager = invoke{m.get<"auth.AuthManager">(), key, m.get<"_config">().item<"server_url">(),
                             kw<"invite_code">(invite_code), kw<"register_wallet">(is_new)};
            manager.call<"authenticate">();
            return manager;
        },
        [&](const Handling& except) -> Object {
            refuse_registration(m, except, manager, directory, private_key, is_new);
        });
}

[[noreturn]] void refuse_login(Module m, const Handling& except) {
    if (except.caught(m.get<"auth.InvalidKeyError">())) raise(PyExc_ValueError, invalid_key());
    if (except.caught(PyExc_ConnectionError)) raise(PyExc_ConnectionError, unreachable());
    if (except.caught(m.get<"auth.AuthError">()))
        raise(m.call<"auth.AuthError">("Authentication failed. Verify your private key is correct."_s));
    except.reraise();
}

Object authenticate_login(Module m, const Object& private_key) {
    const Object key = m.call<"_normalize_key">(private_key);
    return try_except(
        [&] {
            Object manager = invoke{m.get<"auth.AuthManager">(), key, m.get<"_config">().item<"server_url">()};
            manager.call<"authenticate">();
            return manager;
        },
        [&](const Handling& except) -> Object { refuse_login(m, except); });
}

void set_active_manager(Module m, const Object& manager) {
    log_failure(
        m, [&] { return m.call<"auth._set_active_auth_manager">(manager); }, "Failed to set active auth manager: %s"_s);
}

Object register_agent(Module m, Object invite_code, const Object& data_dir, const Object& market_id,
                      const Object& bootstrap_runtime, const Object& settings_path) {
    m.call<"_apply_file_settings">(kw<"settings_path">(settings_path));

    const Object directory = settle_data_dir(m, data_dir.is_none() ? m.get<"_config">().item<"data_dir">() : data_dir);
    if (!market_id.is_none()) set_option<"market_id">(m, as_int(market_id));
    if (truth(bootstrap_runtime)) require_positive_market_id(m);
    m.call<"os.makedirs">(directory, kw<"exist_ok">(true));

    Object private_key = m.call<"_read_wallet_key">(directory);
    const bool is_new = private_key.is_none();
    if (is_new) {
        invite_code = m.call<"_resolve_invite_code">(invite_code);
        private_key = m.call<"secrets.token_hex">(32);
    } else {
        invite_code = m.call<"_resolve_optional_invite_code">(invite_code);
    }

    const Object manager = authenticate_registration(m, directory, private_key, invite_code, is_new);
    if (is_new) m.call<"_write_wallet_key">(directory, private_key);
    m.set<"_auth_manager">(manager);
    if (truth(bootstrap_runtime)) {
        m.call<"_resolve_active_named_universe">(manager);
        m.call<"_propagate_auth">(manager, kw<"strict">(true));
    } else {
        set_active_manager(m, manager);
    }

    const Object address = manager.call<"get_wallet_address">();
    if (truth(option<"auto_heartbeat">(m, true))) m.call<"inject_heartbeat">();
    return m.call<"WalletRegistration">(kw<"address">(address));
}

Object login(Module m, const Object& private_key, const Object& bootstrap_runtime, const Object& settings_path) {
    if (private_key.is_none()) raise(PyExc_ValueError, invalid_key());
    m.call<"_apply_file_settings">(kw<"settings_path">(settings_path));

    const Object data_dir = settle_data_dir(m, m.get<"_config">().item<"data_dir">());
    m.call<"os.makedirs">(data_dir, kw<"exist_ok">(true));
    m.call<"_write_wallet_key">(data_dir, private_key);

    const Object manager = authenticate_login(m, private_key);
    m.set<"_auth_manager">(manager);
    if (truth(bootstrap_runtime))
        m.call<"_propagate_auth">(manager, kw<"strict">(true));
    else
        set_active_manager(m, manager);

    return invoke{m.get<"AuthToken">(), kw<"token">(manager.call<"get_token">()),
                  kw<"expires_at">(manager.call<"get_token_expiry">())};
}

}  // namespace

PyMethodDef functions::registration[] = {
    def<"_normalize_key(raw_key)", normalize_key, "Ensure private key has 0x prefix for AuthManager.">(),
    def<"_resolve_invite_code(invite_code)", resolve_invite_code,
        "Return canonical invite code from argument/settings before AuthManager creation.">(),
    def<"_resolve_optional_invite_code(invite_code)", resolve_optional_invite_code,
        "Return canonical explicit invite code for existing-wallet re-auth, or None.">(),
    def<"register(invite_code=None, data_dir=None, market_id=None, bootstrap_runtime=False, settings_path=None)",
        register_agent, "First-run or idempotent wallet registration.">(),
    def<"login(private_key, bootstrap_runtime=False, settings_path=None)", login,
        "Login for returning agents with existing private key.">(),
    {}};

}  // namespace agent_onboarding
