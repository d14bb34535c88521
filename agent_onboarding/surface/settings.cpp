/// \file The user's settings file, folded into the option store.
#include "parts.hpp"
#include "shared/options.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

Object path_in_use(Module m, const Object& settings_path) {
    if (settings_path.is_none()) return m.call<"default_settings_path">();
    return invoke{m.get<"os.path.abspath">(),
                  invoke{m.get<"os.path.expanduser">(), m.call<"os.fspath">(settings_path)}};
}

/// Values set in the process win over the file for the two URLs.
void apply_urls(Module m, const Object& settings) {
    if (truth(settings.get<"server_url">())) {
        const Object current = option<"server_url">(m);
        if (current == m.get<"DEFAULT_SERVER_URL">()) set_option<"server_url">(m, str(settings.item<"server_url">()));
    }
    if (truth(settings.get<"signal_service_url">()) && !truth(option<"signal_service_url">(m)))
        set_option<"signal_service_url">(m, str(settings.item<"signal_service_url">()));
}

/// What is not a number is stored as it is: whoever needs a market id refuses it with a message of its own.
void apply_market_id(Module m, const Object& settings) {
    const Object market_id = settings.get<"market_id">();
    if (market_id.is_none()) return;
    const auto store = [&](const Object& value) {
        set_option<"market_id">(m, value);
        return none;
    };
    try_except([&] { return store(as_int(market_id)); }, {PyExc_TypeError, PyExc_ValueError},
               [&](const Handling&) { return store(market_id); });
}

void apply_data_dir(Module m, const Object& settings_path) {
    const Object current = option<"data_dir">(m);
    if (current != m.get<"DATA_DIR">()) return;
    const Object selected = m.call<"resolve_data_dir">(kw<"settings_path">(settings_path), kw<"ensure">(false));
    set_option<"data_dir">(m, str(selected));
}

Object apply_file_settings(Module m, const Object& settings_path) {
    const Object settings = m.call<"load_settings">(settings_path, kw<"ensure">(false));
    const Object path = str(path_in_use(m, settings_path));
    set_option<"_settings_path">(m, path);

    apply_urls(m, settings);
    if (contains(settings, "invite_code"_s)) {
        const Object invite_code = settings.get<"invite_code">();
        set_option<"invite_code">(m, invite_code);
    }
    apply_market_id(m, settings);
    apply_data_dir(m, settings_path);

    for (const Object& key : {"sync_http_transport"_s, "sync_http_chunk_bytes"_s, "sync_max_concurrency"_s}) {
        const Object value = settings.item(key);
        m.get<"_config">().set_item(key, value);
    }
    return none;
}

}  // namespace

PyMethodDef functions::settings[] = {def<"_apply_file_settings(settings_path=None)", apply_file_settings,
                                         "Load .sablecrest/settings.yaml and apply supported process settings.">(),
                                     {}};

}  // namespace agent_onboarding
