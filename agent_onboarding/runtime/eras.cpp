/// \file The service's era table, and the named universe that the market's active era selects.
#include "parts.hpp"
#include "shared/options.hpp"

namespace agent_onboarding {

using namespace py;

namespace {

constexpr int timeout_seconds = 15;
constexpr int http_ok = 200;

[[noreturn]] void refuse(const Object& message) { raise(PyExc_RuntimeError, message); }

struct Response {
    Object status, body;
};

Response get_eras(Module m, const Object& url, const Object& token) {
    const Object headers = dict{};
    headers.set_item<"Authorization">(fstring<"Bearer {}">{token});
    const Object request = m.call<"urllib.request.Request">(url, kw<"headers">(headers), kw<"method">("GET"_s));
    const Object response = m.call<"urllib.request.urlopen">(request, kw<"timeout">(timeout_seconds));
    Object status = response.find_attr<"status">().value_or(to_object(http_ok));
    return {std::move(status), response.call<"read">()};
}

bool is_failed_exchange(Module m, const Handling& except) {
    return except.caught(PyExc_OSError) || except.caught(PyExc_ValueError) ||
           except.caught(m.get<"urllib.error.URLError">()) ||
           except.caught(import_from(m, "http.client"_s, "HTTPException"_s));
}

/// A token that can stand in a header is not part of what the exchange fails with.
bool can_stand_in_header(const Object& token) {
    const Object text = str(token);
    return truth(text.call<"isascii">()) && truth(text.call<"isprintable">());
}

Response fetch_eras(Module m, const Object& token) {
    const auto failure = [] {
        return Object{invoke{PyExc_RuntimeError, "Registration bootstrap failed to fetch /eras."_s}};
    };
    const Object url = m.call<"_configured_signal_service_url">().call<"rstrip">("/"_s) + "/eras"_s;
    const auto response = try_except([&] { return std::optional{get_eras(m, url, token)}; },
                                     [&](const Handling& except) -> std::optional<Response> {
                                         if (!is_failed_exchange(m, except)) except.reraise();
                                         if (can_stand_in_header(token)) raise_from(failure(), except.value());
                                         return std::nullopt;
                                     });
    if (!response.has_value()) raise(failure());  // neither cause nor context: they may hold the token
    return *response;
}

Object parse_json(Module m, const Object& body) {
    return try_except([&] { return m.call<"json.loads">(body); }, {PyExc_ValueError, PyExc_RecursionError},
                      [](const Handling& except) -> Object {
                          raise_from(
                              invoke{PyExc_RuntimeError, "Registration bootstrap received invalid /eras JSON."_s},
                              except.value());
                      });
}

Object fetch_eras_payload(Module m, const Object& am) {
    const Object token = am.call<"get_token">();
    if (!truth(token)) refuse("Registration bootstrap could not fetch /eras without an auth token."_s);

    const Response response = fetch_eras(m, token);
    if (response.status != to_object(http_ok))
        refuse(fstring<"Registration bootstrap failed to fetch /eras: HTTP {}.">{response.status});

    Object payload = parse_json(m, response.body);
    if (!payload.is_dict()) refuse("Registration bootstrap received invalid /eras payload."_s);
    return payload;
}

/// `mapping.get(key) or mapping.get(other_key)`
Object get_either(const Object& mapping, const Object& key, const Object& other_key) {
    const Object value = mapping.get(key);
    return truth(value) ? value : mapping.get(other_key);
}

Object eras_of_market(Module m, const Object& payload) {
    const Object eras_by_market = get_either(payload, "eras_by_market"_s, "market_era_groups"_s);
    if (!eras_by_market.is_dict()) refuse("Registration bootstrap /eras payload is missing eras_by_market."_s);

    const Object market_id = as_int(option<"market_id">(m));
    Object eras = get_either(eras_by_market, str(market_id), market_id);
    if (!eras.is_list() || size(eras) == 0)
        refuse(fstring<"Registration bootstrap found no eras for market_id={}.">{market_id});
    return eras;
}

bool is_active(const Object& era) { return era.is_dict() && str(era.get<"state">(""_s)).call<"lower">() == "active"_s; }

/// The first active era, or the first of the market: one without an active era still yields a universe.
Object select_era(const Object& eras) {
    const Object active = list{};
    for (const Object& era : iterate(eras))
        if (is_active(era)) append(active, era);
    return size(active) > 0 ? active.item(to_object(0)) : eras.item(to_object(0));
}

Object resolve_active_named_universe(Module m, const Object& am) {
    Object configured = invoke{m.get<"_safe_named_universe">(), option<"named_universe">(m)};
    if (truth(configured)) {
        set_option<"named_universe">(m, configured);
        return configured;
    }

    const Object payload = m.call<"_fetch_eras_payload">(am);
    const Object era = select_era(eras_of_market(m, payload));
    const Object candidates = m.call<"_active_era_named_universe_candidates">(era);
    if (!truth(candidates)) refuse("Registration bootstrap expected at least one active named universe from /eras."_s);

    set_option<"named_universes">(m, list_of(candidates));
    set_option<"named_universe">(m, candidates.item(to_object(0)));
    return candidates.item(to_object(0));
}

}  // namespace

PyMethodDef functions::eras[] = {def<"_fetch_eras_payload(am)", fetch_eras_payload>(),
                                 def<"_resolve_active_named_universe(am)", resolve_active_named_universe>(),
                                 {}};

}  // namespace agent_onboarding
