/// \file The user's settings file, folded into the option store.
#include "parts.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

Object path_in_use(Module m, const Object& settings_path) {
    if (settings_path.is_none()) return m.call<"default_settings_path">();
    const Object expanded = m.call<"os.path.expanduser">(m.call<"os.fspath">(settings_path));
    return m.call<"os.path.abspath">(expanded);
}

/// Values set in the process win over the file for the two URLs.
void apply_urls(Module m, const Object& settings) {
    if (truth(settings.lookup<"server_url">())) {
        const Object current = m.get<"_config">().lookup<"server_url">();
        if (current == m.get<"DEFAULT_SERVER_URL">())
            m.get<"_config">().set_item<"server_url">(str(settings.item<"server_url">()));
    }
    if (truth(settings.lookup<"signal_service_url">()) && !truth(m.get<"_config">().lookup<"signal_service_url">()))
        m.get<"_config">().set_item<"signal_service_url">(str(settings.item<"signal_service_url">()));
}

/// What is not a number is stored as it is: whoever needs a market id refuses it with a message of its own.
void apply_market_id(Module m, const Object& settings) {
    const Object market_id = settings.lookup<"market_id">();
    if (market_id.is_none()) return;
    try {
        m.get<"_config">().set_item<"market_id">(as_int(market_id));
    } catch (const Error& error) {
        const Handling except{error};
        if (!except.caught(PyExc_TypeError) && !except.caught(PyExc_ValueError)) throw;
        m.get<"_config">().set_item<"market_id">(market_id);
    }
}

void apply_data_dir(Module m, const Object& settings_path) {
    const Object current = m.get<"_config">().lookup<"data_dir">();
    if (current != m.get<"DATA_DIR">()) return;
    const Object selected = m.call<"resolve_data_dir">(kw<"settings_path">(settings_path), kw<"ensure">(false));
    m.get<"_config">().set_item<"data_dir">(str(selected));
}

Object apply_file_settings(Module m, const Object& settings_path) {
    const Object settings = m.call<"load_settings">(settings_path, kw<"ensure">(false));
    const Object path = str(path_in_use(m, settings_path));
    m.get<"_config">().set_item<"_settings_path">(path);

    apply_urls(m, settings);
    if (contains(settings, "invite_code"_s)) {
        const Object invite_code = settings.lookup<"invite_code">();
        m.get<"_config">().set_item<"invite_code">(invite_code);
    }
    apply_market_id(m, settings);
    apply_data_dir(m, settings_path);

    for (const Object& key : {"sync_http_transport"_s, "sync_http_chunk_bytes"_s, "sync_max_concurrency"_s}) {
        const Object value = settings.item(key);
        m.get<"_config">().set_item(key, value);
    }
    return none();
}

Object configured_signal_service_url(Module m) {
    Object url = m.get<"_config">().lookup<"signal_service_url">();
    if (!truth(url)) url = m.get<"_config">().lookup<"server_url">();
    return truth(url) ? url : m.get<"DEFAULT_SERVER_URL">();
}

}  // namespace

PyMethodDef functions::signal_service_url[] = {def<"_configured_signal_service_url()", configured_signal_service_url>(),
                                               {}};

PyMethodDef functions::file_settings[] = {def<"_apply_file_settings(settings_path=None)", apply_file_settings,
                                              "Load .sablecrest/settings.yaml and apply supported process settings.">(),
                                          {}};

}  // namespace agent_onboarding
