/// \file `register` and `login`: an agent's identity on the service.
#include "parts.hpp"
#include "surface/option_store.hpp"
#include "surface/warning.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

Object unreachable() { return "Cannot reach SableCrest server. Check your network connection and try again."_s; }
Object invalid_key() { return "Invalid private key format. Expected hex string (64 characters) or 32 bytes."_s; }

Outcome resolve_invite_code(Module m, Object invite_code) {
    if (invite_code.is_none()) invite_code = option<"invite_code">(m);
    Object resolved = m.call<"auth._normalize_invite_code">(invite_code);
    if (resolved.is_none())
        return refused(PyExc_ValueError,
                       "Invite code required. Pass --invite-code, set invite_code in settings.yaml, or call "
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
    try {
        return as_int(option<"market_id">(m));
    } catch (const Error& error) {
        const Handling except{error};
        if (!except.caught(PyExc_TypeError) && !except.caught(PyExc_ValueError)) throw;
        return to_object(0);
    }
}

void require_positive_market_id(Module m) {
    if (compare(configured_market_id(m), Py_LE, to_object(0)))
        raise(PyExc_ValueError, "Runtime bootstrap requires an explicit positive market_id. Set 'market_id' to a "
                                "positive integer in ~/.sablecrest/settings.yaml (run `sablecrest init` to add the "
                                "field)."_s);
}

bool is_acknowledged(const Object& manager) {
    if (manager.is_none()) return false;
    const std::optional<Object> acknowledged = manager.find<"_registration_acknowledged">();
    return acknowledged.has_value() && truth(*acknowledged);
}

Object authenticate_registration(Module m, const Object& directory, const Object& private_key,
                                 const Object& invite_code, bool is_new) {
    const Object key = m.call<"_normalize_key">(private_key);
    intern<"auth.RegistrationError", "auth.InvalidKeyError", "_registration_acknowledged", "_write_wallet_key">();
    Object manager = none();
    try {
        const Object auth_manager = m.get<"auth.AuthManager">();
        manager = auth_manager(key, m.get<"_config">().item<"server_url">(), kw<"invite_code">(invite_code),
                               kw<"register_wallet">(is_new));
        manager.call<"authenticate">();
        return manager;
    } catch (const Error& error) {
        const Handling except{error};
        if (except.caught(PyExc_ConnectionError)) raise(PyExc_ConnectionError, unreachable());
        if (except.caught(m.get<"auth.RegistrationError">())) {
            const Object registration_error = m.get<"auth.RegistrationError">();
            raise(
                registration_error(text<"Registration failed: {}. Contact support if this persists.">(except.value())));
        }
        if (except.caught(m.get<"auth.InvalidKeyError">())) raise(PyExc_ValueError, invalid_key());
        // Once the server has accepted a wallet, its key must not be lost.
        if (except.caught(PyExc_Exception) && is_new && is_acknowledged(manager))
            m.call<"_write_wallet_key">(directory, private_key);
        throw;
    }
}

Object authenticate_login(Module m, const Object& private_key) {
    const Object key = m.call<"_normalize_key">(private_key);
    try {
        const Object auth_manager = m.get<"auth.AuthManager">();
        Object manager = auth_manager(key, m.get<"_config">().item<"server_url">());
        manager.call<"authenticate">();
        return manager;
    } catch (const Error& error) {
        const Handling except{error};
        if (except.caught(m.get<"auth.InvalidKeyError">())) raise(PyExc_ValueError, invalid_key());
        if (except.caught(PyExc_ConnectionError)) raise(PyExc_ConnectionError, unreachable());
        if (except.caught(m.get<"auth.AuthError">()))
            raise(m.call<"auth.AuthError">("Authentication failed. Verify your private key is correct."_s));
        throw;
    }
}

void set_active_manager(Module m, const Object& manager) {
    warn(
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

Outcome login(Module m, const Object& private_key, const Object& bootstrap_runtime, const Object& settings_path) {
    if (private_key.is_none()) return refused(PyExc_ValueError, invalid_key());
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

    const Object auth_token = m.get<"AuthToken">();
    const Object token = manager.call<"get_token">();
    const Object expires_at = manager.call<"get_token_expiry">();
    return auth_token(kw<"token">(token), kw<"expires_at">(expires_at));
}

}  // namespace

PyMethodDef functions::invite_codes[] = {
    def<"_resolve_invite_code(invite_code)", resolve_invite_code,
        "Return canonical invite code from argument/settings before AuthManager creation.">(),
    def<"_resolve_optional_invite_code(invite_code)", resolve_optional_invite_code,
        "Return canonical explicit invite code for existing-wallet re-auth, or None.">(),
    {}};

PyMethodDef functions::registration[] = {
    def<"register(invite_code=None, data_dir=None, market_id=None, bootstrap_runtime=False, settings_path=None)",
        register_agent,
        "First-run or idempotent wallet registration.\n"
        "\n"
        "Applies the settings file, then creates wallet.key in the data directory and registers it, or authenticates\n"
        "with the key that is already there, and extends HEARTBEAT.md unless auto_heartbeat is off.\n"
        "\n"
        "invite_code (str): required for a new wallet; defaults to the invite_code option.\n"
        "data_dir (str): defaults to the data_dir option, and replaces it.\n"
        "market_id (int): replaces the market_id option.\n"
        "bootstrap_runtime (bool): also bring up the local search runtime; needs a positive market id.\n"
        "settings_path (str): the settings file; defaults to ~/.sablecrest/settings.yaml.\n"
        "\n"
        "Returns WalletRegistration(address).\n"
        "\n"
        "Raises ValueError without an invite code for a new wallet, for a malformed key, or without a positive market\n"
        "id where the runtime is asked for; ConnectionError when the server cannot be reached;\n"
        "auth.RegistrationError when it refuses the registration; auth.AuthError when it refuses the key; OSError when\n"
        "wallet.key is unsafe or cannot be read or written; RuntimeError when the runtime cannot be brought up.">(),
    def<"login(private_key, bootstrap_runtime=False, settings_path=None)", login,
        "Login for returning agents with existing private key.\n"
        "\n"
        "Stores the key in wallet.key as it is given, replacing any other, and authenticates with it. A refused key\n"
        "stays stored.\n"
        "\n"
        "private_key (str): 64 hexadecimal digits, with or without 0x.\n"
        "bootstrap_runtime (bool): also bring up the local search runtime, for the universe that is configured.\n"
        "settings_path (str): the settings file; defaults to ~/.sablecrest/settings.yaml.\n"
        "\n"
        "Returns AuthToken(token, expires_at), the expiry in seconds since the epoch.\n"
        "\n"
        "Raises ValueError for a malformed key; ConnectionError when the server cannot be reached; auth.AuthError when\n"
        "it refuses the key; OSError when wallet.key is unsafe or cannot be written; RuntimeError when the runtime\n"
        "cannot be brought up.">(),
    {}};

}  // namespace agent_onboarding
