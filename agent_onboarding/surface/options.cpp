/// \file The process-wide option store `_config`, and `configure`, which validates options and applies them.
#include "shared/options.hpp"
#include "parts.hpp"
#include "shared/path_segment.hpp"

namespace agent_onboarding {

using namespace py;

Object make_option_store(Module m) {
    Object config = dict{};
    config.set_item<"auto_heartbeat">(true);
    config.set_item<"data_dir">(m.get<"DATA_DIR">());
    config.set_item<"server_url">(m.get<"DEFAULT_SERVER_URL">());
    config.set_item<"signal_service_url">(none);
    config.set_item<"invite_code">(none);
    config.set_item<"sync_http_transport">("auto"_s);
    config.set_item<"sync_http_chunk_bytes">(64 * 1024 * 1024);
    config.set_item<"sync_max_concurrency">(8);
    config.set_item<"named_universe">(""_s);
    config.set_item<"market_id">(none);
    config.set_item<"_settings_path">(none);
    return config;
}

Object make_option_types(Module m) {
    const Object bool_ = type(PyBool_Type);
    const Object str_ = type(PyUnicode_Type);
    const Object int_ = type(PyLong_Type);
    const Object float_ = type(PyFloat_Type);
    const Object list_ = type(PyList_Type);

    Object types = dict{};
    types.set_item<"auto_heartbeat">(bool_);
    types.set_item<"data_dir">(tuple{str_, m.get<"os.PathLike">()});
    types.set_item<"server_url">(str_);
    types.set_item<"signal_service_url">(str_);
    types.set_item<"invite_code">(tuple{str_, type_of(none)});
    types.set_item<"sync_http_transport">(str_);
    types.set_item<"sync_http_chunk_bytes">(int_);
    types.set_item<"sync_max_concurrency">(int_);
    types.set_item<"named_universe">(str_);
    types.set_item<"market_id">(int_);
    types.set_item<"feature_budget_gb">(tuple{int_, float_});
    types.set_item<"market">(str_);
    types.set_item<"named_universes">(list_);
    types.set_item<"algorithm">(str_);
    types.set_item<"family">(str_);
    types.set_item<"subfamily">(str_);
    types.set_item<"rotation_frequency">(str_);
    types.set_item<"rotation_seed">(int_);
    return types;
}

Object make_rotation_option_names(Module) {
    return set{"feature_budget_gb"_s,  "market"_s,       "named_universes"_s, "algorithm"_s, "family"_s, "subfamily"_s,
               "rotation_frequency"_s, "rotation_seed"_s};
}

namespace {

Object expected_type_name(Module, const Object& expected_type) {
    if (!expected_type.is_tuple()) return expected_type.attr<"__name__">();
    const Object names = list{};
    for (const Object& type : iterate(expected_type)) append(names, type.attr<"__name__">());
    return join(" or "_s, names);
}

[[noreturn]] void refuse_unknown_option(Module m, const Object& key) {
    raise(PyExc_ValueError, fstring<"Unknown configuration option: '{}'. Valid options: {}">{
                                key, join(", "_s, sorted(m.get<"_VALID_OPTIONS">()))});
}

[[noreturn]] void refuse_type(Module m, const Object& key, const Object& expected, const Object& value) {
    raise(PyExc_ValueError,
          fstring<"Option '{}' expects {}, got {}.">{key, m.call<"_expected_type_name">(expected), type_name(value)});
}

Object checked_data_dir(Module m, const Object& value) {
    Object path = m.call<"os.fspath">(value);
    if (path == ""_s) raise(PyExc_ValueError, "data_dir cannot be empty."_s);
    return path;
}

Object checked_named_universe(const Object& value) {
    Object name = strip(value);
    if (!truth(name)) raise(PyExc_ValueError, "named_universe cannot be empty."_s);
    if (!is_safe_path_segment(name)) raise(PyExc_ValueError, "named_universe must be a single safe path segment."_s);
    return name;
}

Object checked_market_id(const Object& value) {
    if (value <= 0) raise(PyExc_ValueError, "market_id must be a positive integer."_s);
    return value;
}

Object checked_option(Module m, const Object& key, const Object& value) {
    if (!contains(m.get<"_VALID_OPTIONS">(), key)) refuse_unknown_option(m, key);

    const Object expected = m.get<"_VALID_OPTIONS">().item(key);
    if (!is_instance(value, expected)) refuse_type(m, key, expected, value);

    if (key == "data_dir"_s) return checked_data_dir(m, value);
    if (key == "server_url"_s) return m.call<"auth._validate_server_url">(value);
    if (key == "named_universe"_s) return checked_named_universe(value);
    if (key == "market_id"_s) return checked_market_id(value);
    return value;
}

/// The updates that belong to the rotation settings.
Object rotation_options(Module m, const Object& updates) {
    Object rotation = dict{};
    for_each_item(updates, [&](const Object& key, const Object& value) {
        if (contains(m.get<"_ROTATION_SETTING_OPTIONS">(), key)) rotation.set_item(key, value);
    });
    return rotation;
}

Object catalog_context(Module m) {
    Object named_universe = option<"named_universe">(m);
    if (!truth(named_universe)) named_universe = "default"_s;
    Object context = dict{};
    context.set_item<"current_market">("crypto"_s);
    context.set_item<"market">("crypto"_s);
    context.set_item<"current_universes">(list{named_universe});
    context.set_item<"named_universes">(list{named_universe});
    return context;
}

void write_rotation_settings(Module m, const Object& updates) {
    const Object rotation_settings = import_from(m, "sablecrest"_s, "_rotation_settings"_s);
    const Object data_dir =
        invoke{m.get<"_canonical_data_dir">(), invoke{m.get<"os.fspath">(), m.get<"_config">().item<"data_dir">()}};
    m.call<"os.makedirs">(data_dir, kw<"exist_ok">(true));

    Object current = dict{};
    const Object context = catalog_context(m);
    if (truth(rotation_settings.call<"settings_path_for_data_dir">(data_dir).call<"exists">()))
        current = rotation_settings.call<"load_rotation_settings">(data_dir, kw<"catalog_context">(context))
                      .call<"model_dump">();
    current.call<"update">(updates);

    if (!contains(current, "market"_s)) current.set_item<"market">(context.item<"market">());
    if (!contains(current, "named_universes"_s))
        current.set_item<"named_universes">(list_of(context.item<"named_universes">()));
    if (!contains(current, "rotation_seed"_s)) current.set_item<"rotation_seed">(0);
    rotation_settings.call<"write_rotation_settings">(data_dir, current);
}

Object configure(Module m, const Object& options) {
    if (options.is_none()) return none;
    const Object updates = dict{};
    for_each_item(options, [&](const Object& key, const Object& value) {
        const Object checked = checked_option(m, key, value);
        updates.set_item(key, checked);
        m.get<"_config">().set_item(key, checked);
    });

    const Object rotation = rotation_options(m, updates);
    if (truth(rotation)) write_rotation_settings(m, rotation);
    return none;
}

Object configured_signal_service_url(Module m) {
    Object url = option<"signal_service_url">(m);
    if (!truth(url)) url = option<"server_url">(m);
    if (!truth(url)) url = m.get<"DEFAULT_SERVER_URL">();
    return url;
}

}  // namespace

PyMethodDef functions::options[] = {
    def<"_expected_type_name(expected_type)", expected_type_name>(),
    def<"_configured_signal_service_url()", configured_signal_service_url>(),
    def<"configure(**kwargs)", configure,
        "Set library configuration options.\n"
        "\n"
        "Options are checked and stored one by one, in call order: when one is refused, those before it are stored.\n"
        "\n"
        "auto_heartbeat (bool): register() extends HEARTBEAT.md.\n"
        "data_dir (str or os.PathLike): directory of wallet.key and the runtime files; not empty.\n"
        "server_url (str): base URL of the API server, checked by sablecrest.auth.\n"
        "signal_service_url (str): base URL of the signal service; the server_url where it is empty.\n"
        "invite_code (str or None): code that a new wallet is registered with.\n"
        "sync_http_transport (str), sync_http_chunk_bytes (int, bytes), sync_max_concurrency (int): sync limits.\n"
        "named_universe (str): data partition, one safe path segment; stored stripped.\n"
        "market_id (int): positive number of the market.\n"
        "market (str), named_universes (list of str), algorithm, family, subfamily, rotation_frequency (str),\n"
        "rotation_seed (int), feature_budget_gb (int or float, gigabytes): also written to the data directory's rotation\n"
        "settings.\n"
        "\n"
        "Raises ValueError for an unknown option, a value of another type, or a value out of bounds; what checking a\n"
        "server URL or writing the rotation settings raises passes through.">(),
    {}};

}  // namespace agent_onboarding
