"""The era table: the request for it, each bad answer to that, and which universe an era selects."""

from http.client import BadStatusLine
from json import JSONDecodeError
from types import SimpleNamespace

from support.cases import Case, call, checked, given, patched, raising, together

FAILED, RECEIVED = "Registration bootstrap failed to fetch /eras", "Registration bootstrap received invalid /eras"
NO_TOKEN = "Registration bootstrap could not fetch /eras without an auth token."
NO_MARKETS = RuntimeError("Registration bootstrap /eras payload is missing eras_by_market.")
NO_ERAS = RuntimeError("Registration bootstrap found no eras for market_id=7.")
NO_UNIVERSE = RuntimeError("Registration bootstrap expected at least one active named universe from /eras.")
resolve = call("_resolve_active_named_universe", "manager")


def fetch(token=5):
    return call("_fetch_eras_payload", SimpleNamespace(get_token=lambda: token))


def opening(error):
    return patched("urllib.request.urlopen", raising(error, "e"))


def reading(body, **status):
    """A `prepare`: this is the body of the answer, or reading it does this."""
    response = SimpleNamespace(read=body if callable(body) else lambda: body, **status)
    return patched("urllib.request.urlopen", lambda request, timeout: response)


def bad(prepare, text, cause=None, *, token=5, name=""):
    return Case(f"{text} {cause} {name}", prepare, fetch(token), None, RuntimeError(text), cause, cause)


def of(payload, market_id="7 ", universe=" / "):
    options = {"market_id": market_id, "named_universe": universe}
    return given(config=options, _fetch_eras_payload=lambda am: {"manager": payload}[am])


def selects(payload, *candidates):
    options = {"named_universe": candidates[0], "named_universes": [*candidates]}
    return Case(f"{payload}", of(payload), resolve, candidates[0], config=options)


def refuses(payload, market_id, error):
    return Case(f"{payload} for {market_id!r}", of(payload, market_id, ""), resolve, raises=error)


HOST, SIGNALS = {"server_url": "http://host/a//"}, {"server_url": "http://", "signal_service_url": "http://signals/"}
REQUEST = """...  urllib.request.Request('http://{}/eras', headers={{'Authorization': 'Bearer 5'}}, method='GET')
    urllib.request.urlopen(<urllib.request.Request object>, timeout=15)  json.loads({!r})"""
DEEP, WIDE = b"[" * 100_000, '{"\u00e9": 1}'.encode("utf-16")
BAD_JSON = {b"{} {}": JSONDecodeError, b'"\xff"': UnicodeDecodeError, DEEP: RecursionError, b"1" * 5000: ValueError}
ACTIVE = {"state": "aCTIVE", "named_universe": " u ", "universes": ["v", "u"]}
CLOSED, NONE, KEPT = {"state": "closed", "named_universe": "c"}, {"state": None, "named_universe": "n"}, ["c"]
keep = given(_active_era_named_universe_candidates=lambda era: KEPT)
ROWS = [
    *(Case(host, together(given(config=options), reading(body)), fetch(), payload, calls=REQUEST.format(host, body))
      for host, options, body, payload in (("signals", SIGNALS, b"{}", {}), ("host/a", HOST, WIDE, {"\u00e9": 1}))),
    *(bad(opening(KeyError), NO_TOKEN, token=token, name=repr(token)) for token in (None, "")),
    *(bad(given(), f"{FAILED}.", token=token, name=repr(token)) for token in ("secret\n", "secret\U0001d11e")),
    *(bad(opening(error), f"{FAILED}.", error) for error in (OSError, ValueError, BadStatusLine)),
    *(bad(reading(raising(error)), f"{FAILED}.", error, name="reading") for error in (OSError, ValueError)),
    *(bad(reading(b"", status=status), f"{FAILED}: HTTP {status}.") for status in (204, 199, None)),
    *(bad(reading(body), f"{RECEIVED} JSON.", cause) for body, cause in BAD_JSON.items()),
    *(bad(reading(body), f"{RECEIVED} payload.", name=f"{body}") for body in (b"[1]", b"null")),
    *(Case(f"{error}", opening(error), fetch(), raises=error) for error in (KeyError, KeyboardInterrupt, RuntimeError)),
    Case("configured", of(None, None, " u "), resolve, "u", config={"named_universe": "u"}),
    Case("copied", together(of({"eras_by_market": {"7": [{}]}}), keep), lambda m: resolve(m) in KEPT and
        m._config["named_universes"] is not KEPT, True, config={"named_universe": "c", "named_universes": ["c"]},
        calls="_safe_named_universe(' / ')  _fetch_eras_payload('manager')  _active_era_named_universe_candidates({})"),
    selects({"eras_by_market": {"7": [CLOSED, "no era", ACTIVE, {"state": "active"}]}}, "u", "v"),
    selects({"eras_by_market": {"7": [NONE, {"named_universe": "m"}]}}, "n"),
    selects({"eras_by_market": {"8": [CLOSED], "7": [ACTIVE]}, "market_era_groups": {"7": [CLOSED]}}, "u", "v"),
    selects({"eras_by_market": {}, "market_era_groups": {7: [CLOSED]}}, "c"),
    selects({"eras_by_market": {7: [CLOSED], "7": [ACTIVE]}}, "u", "v"),
    *(refuses({name: value}, "x", NO_MARKETS) for name, value in (("eras_by_market", {}), ("market_era_groups", "7"))),
    *(refuses({"market_era_groups": {"7": eras}}, "7", NO_ERAS) for eras in ([], (), {"0": ACTIVE})),
    refuses({"eras_by_market": {"7": [{"state": "active"}, CLOSED]}}, 7, NO_UNIVERSE),
    refuses({"eras_by_market": {"7": [ACTIVE]}}, "x", ValueError),
]  # fmt: skip


NAMES = [(" \t a b\u3000\n", "a b"), ("...", "..."), (True, "True"), (["a"], "['a']")]
NAMES += [(value, None) for value in (None, "", " \n", ".", " .. ", "a/b", "a\\b", "a\0", ("a/",))]
WHOLE = {"universes": [{"id": "d"}, None, "e"], "allowed_named_universes": ["b", "a"], "named_universe": "a"}
POOLS = [{"allowed_named_universes": names} for names in (["..", "c", 5, "a"], " q ", ("q",))]
#: An era, its candidates, and the universe that is the first one for it as an era configuration.
ERAS = [
    (WHOLE | {"signal_pools": ["no pool", {}, *POOLS]}, ["a", "b", "c", "5", "q", "('q',)", "d", "e"], "c"),
    (WHOLE | {"signal_pools": tuple(POOLS)}, ["a", "b", "d", "e"], "b"),
    ({"named_universe": " u ", "allowed_named_universes": ["/", None]}, ["u"], "u"),
    ({"named_universe": "a/b", "universes": {"z": 1, "m": 2}}, ["m", "z"], None),
    ({"universes": [{"named_universe": "", "id": 0, "name": "n"}, {"name": "m", "id": "i"}]}, ["n", "i"], None),
    ({"universes": [{"named_universe": "u", "id": "i"}, {"named_universe": "/", "id": "j"}, {}]}, ["u"], None),
]


def select(era):
    first = call("_first_allowed_named_universe_from_era_config", era)
    return lambda m: (m._active_era_named_universe_candidates(era), first(m))


NAMED = [Case(f"{value!r}", given(), call("_safe_named_universe", value), name) for value, name in NAMES]
SELECTED = [
    *(Case(f"{era}", given(), select(era), (candidates, first)) for era, candidates, first in ERAS),
    Case("no era", given(), call("_first_allowed_named_universe_from_era_config", [WHOLE])),
]
test_table_is_fetched_and_selects_a_universe_or_is_refused = checked(ROWS)
test_name_is_one_stripped_path_segment_or_none = checked(NAMED)
test_selectors_go_through_an_era_in_their_own_orders = checked(SELECTED)
