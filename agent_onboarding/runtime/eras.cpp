/// \file The service's era table, and the named universe that the market's active era selects.
#include "parts.hpp"
#include "surface/option_store.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

constexpr int timeout_seconds = 15;
constexpr int http_ok = 200;

[[noreturn]] void refuse(const Object& message) { raise(PyExc_RuntimeError, message); }

struct Response {
    Object status, body;
};

Response get_eras(Module m, const Object& token) {
    const Object url = m.call<"_configured_signal_service_url">().call<"rstrip">("/"_s) + "/eras"_s;
    const Object make_request = m.get<"urllib.request.Request">();
    const Object headers = dict();
    headers.set_item<"Authorization">(text<"Bearer {}">(token));
    const Object request = make_request(url, kw<"headers">(headers));
    try {
        const Object response = m.call<"urllib.request.urlopen">(request, kw<"timeout">(timeout_seconds));
        const Object status = response.find<"status">().value_or(to_object(http_ok));
        return {status, response.call<"read">()};
    } catch (const Error& error) {
        const Handling except{error};
        if (!except.caught(tuple(to_object(PyExc_OSError), m.get<"urllib.error.URLError">()))) throw;
        raise_from(call(PyExc_RuntimeError, "Registration bootstrap failed to fetch /eras."_s), except.value());
    }
}

Object parse_json(Module m, const Object& body) {
    try {
        return m.call<"json.loads">(body);
    } catch (const Error& error) {
        const Handling except{error};
        if (!except.caught(m.get<"json.JSONDecodeError">())) throw;
        raise_from(call(PyExc_RuntimeError, "Registration bootstrap received invalid /eras JSON."_s), except.value());
    }
}

Object fetch_eras_payload(Module m, const Object& am) {
    const Object token = am.call<"get_token">();
    if (!truth(token)) refuse("Registration bootstrap could not fetch /eras without an auth token."_s);

    const Response response = get_eras(m, token);
    if (response.status != to_object(http_ok))
        refuse(text<"Registration bootstrap failed to fetch /eras: HTTP {}.">(response.status));

    Object payload = parse_json(m, response.body);
    if (!payload.is_dict()) refuse("Registration bootstrap received invalid /eras payload."_s);
    return payload;
}

Object first_truthy(const Object& mapping, const Object& key, const Object& other_key) {
    const Object value = mapping.lookup(key);
    return truth(value) ? value : mapping.lookup(other_key);
}

Object eras_of_market(Module m, const Object& payload) {
    const Object eras_by_market = first_truthy(payload, "eras_by_market"_s, "market_era_groups"_s);
    if (!eras_by_market.is_dict()) refuse("Registration bootstrap /eras payload is missing eras_by_market."_s);

    const Object market_id = as_int(option<"market_id">(m));
    Object eras = first_truthy(eras_by_market, str(market_id), market_id);
    if (!eras.is_list() || size(eras) == 0)
        refuse(text<"Registration bootstrap found no eras for market_id={}.">(market_id));
    return eras;
}

bool is_active(const Object& era) {
    return era.is_dict() && str(era.lookup<"state">(""_s)).call<"lower">() == "active"_s;
}

/// The first active era, or the first of the market: one without an active era still yields a universe.
Object select_era(const Object& eras) {
    const Object active = list();
    for (const Object& era : iterate(eras))
        if (is_active(era)) append(active, era);
    return size(active) > 0 ? active.item(to_object(0)) : eras.item(to_object(0));
}

Object resolve_active_named_universe(Module m, const Object& am) {
    Object configured = m.get<"_safe_named_universe">()(option<"named_universe">(m));
    if (truth(configured)) {
        set_option<"named_universe">(m, configured);
        return configured;
    }

    const Object payload = m.call<"_fetch_eras_payload">(am);
    const Object era = select_era(eras_of_market(m, payload));
    const Object candidates = m.call<"_active_era_named_universe_candidates">(era);
    if (!truth(candidates)) refuse("Registration bootstrap expected at least one active named universe from /eras."_s);

    set_option<"named_universes">(m, list_of(candidates));
    const Object selected = candidates.item(to_object(0));
    set_option<"named_universe">(m, selected);
    return candidates.item(to_object(0));
}

}  // namespace

PyMethodDef functions::eras_payload[] = {def<"_fetch_eras_payload(am)", fetch_eras_payload>(), {}};

PyMethodDef functions::active_universe[] = {def<"_resolve_active_named_universe(am)", resolve_active_named_universe>(),
                                            {}};

}  // namespace agent_onboarding
