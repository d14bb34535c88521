"""The era table: the request and each bad answer to it, and the universe that an answer selects."""

import traceback
import urllib.request
from json import JSONDecodeError
from types import SimpleNamespace
from urllib.error import HTTPError, URLError

import pytest
from differential import Scenario, agree, compare

from local_service import FAULTS, LocalService

ERA, NO_ERA = {"state": "ACTIVE", "named_universe": " u ", "universes": ["v", "u"]}, {"state": None, "universes": "w"}
TABLES = [[ERA], [], None, "7", [5, ERA], [5], [None], [{"state": "active"}, ERA], [NO_ERA, {}], [NO_ERA, ERA]]
ANSWERS = [{key: {"7": eras}} for eras in TABLES for key in ("eras_by_market", "market_era_groups")]
ANSWERS += [{"eras_by_market": market} for market in ({7: [ERA]}, {"7": [], 7: [ERA]}, {"8": [ERA]}, [ERA])] + [{}]
OPTIONS = [{"market_id": 7}, *({"market_id": market_id} for market_id in ("7", True, None, "x"))]
OPTIONS += [{"named_universe": name, "market_id": 7} for name in (" u ", "a/b", None, 5)]
BODIES = [b'{"a": 1}', b"[1]", b"null", b"{", b"", b"\xff", '{"é": 1}'.encode("utf-16"), b"[" * 100_000]


class Response:
    def __init__(self, body, status):
        self.read = lambda: body
        vars(self).update(status)


def fetch(body=b"{}", token="token", url="http://host//", **status):
    def prepare(module, patch):
        module._config["server_url"] = url
        patch.setattr(urllib.request, "urlopen", lambda request, timeout: Response(body, status))
        patch.setattr(urllib.request.Request, "__repr__", lambda self: repr(vars(self)))

    manager = SimpleNamespace(get_token=lambda: token)
    return Scenario(f"{body[:9]} {token!r} {status}", prepare, lambda m: m._fetch_eras_payload(manager))


def resolve(options, answer):
    def prepare(module, patch):
        module._config.update(options)
        module._fetch_eras_payload = lambda am: answer

    return Scenario("resolve", prepare, lambda m: m._resolve_active_named_universe("manager"))


SCENARIOS = [fetch(url="no URL"), *map(fetch, BODIES), *(fetch(token=token) for token in ("", None, 5))]
SCENARIOS += [resolve(OPTIONS[0], ANSWERS[0]), *(fetch(status=status) for status in (200, 204, "200", None))]


def test_eras_are_fetched_as_in_plain_python(scenario, directory):
    agree(scenario, directory)


def test_universe_is_selected_as_in_plain_python(directory):
    for case in [(OPTIONS[0], answer) for answer in ANSWERS] + [(options, ANSWERS[0]) for options in OPTIONS]:
        compare(case, resolve(*case), directory)


FAILED = "Registration bootstrap failed to fetch /eras"
#: What comes of each bad answer: the text, the class of the cause, and the class, if it is not RuntimeError.
REFUSALS = {
    "no-content": (f"{FAILED}: HTTP 204.", type(None)),
    "reset": (f"{FAILED}.", ConnectionResetError),
    "slow-header": (f"{FAILED}.", TimeoutError),
    **dict.fromkeys(("redirect-loop", "unauthorized", "server-error"), (f"{FAILED}.", HTTPError)),
    "truncated-json": ("Registration bootstrap received invalid /eras JSON.", JSONDecodeError),
    "array": ("Registration bootstrap received invalid /eras payload.", type(None)),
    "invalid-utf8": ("'utf-8' codec can't decode byte 0xff", type(None), UnicodeDecodeError),
    "nested-arrays": ("maximum recursion depth exceeded", type(None), RecursionError),
    "refused": (f"{FAILED}.", URLError),
}


def test_bad_answers_of_a_real_service_are_refused_without_a_trace(module, tmp_path, monkeypatch, caplog):
    urlopen, told = urllib.request.urlopen, []
    monkeypatch.setattr(urllib.request, "urlopen", lambda request, timeout: urlopen(request, timeout=timeout / 50))
    with LocalService(["code"]) as service:
        module.configure(server_url=service.url, data_dir=tmp_path, market_id=9)
        module.register("code")
        manager, options = module._auth_manager, dict(module._config)
        assert [module._resolve_active_named_universe(manager) for _ in "ab"] == ["metals", "metals"]
        assert service.requests.count("GET /eras") == 1

        module._config.clear()
        module._config.update(options)
        assert REFUSALS.keys() == {*FAULTS, "refused"}
        for fault, (text, cause, *kind) in REFUSALS.items():
            service.faults["/eras"] = fault
            if fault == "refused":
                service.refuse_connections()
            with pytest.raises(Exception, match=text) as caught:
                module._resolve_active_named_universe(manager)
            assert (type(caught.value), type(caught.value.__cause__)) == (*(kind or [RuntimeError]), cause)
            assert module._config == options
            told += [repr(caught.value), *traceback.format_exception(caught.value)]
    assert manager.get_token() not in "".join(told) + caplog.text
