"""Gives the module to many interpreters side by side, and compares what they leave with those without it."""

import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from contextlib import suppress
from functools import partial
from importlib import import_module
from pkgutil import iter_modules
from threading import Barrier
from types import SimpleNamespace

NAME = "sablecrest.agent_onboarding"
IS_NEW = sys.version_info >= (3, 13)
interpreters = import_module("_interpreters" if IS_NEW else "_xxsubinterpreters")
#: One of its own, and the one that others share.
LOCKS = [{"config": "isolated"}, {"config": "legacy"}] if IS_NEW else [{"isolated": True}, {"isolated": False}]
SIDE_BY_SIDE = 4
#: CPython leaves what is interned; the heap wavers.
SLACK = [100 * SIDE_BY_SIDE, 2**18, 0, 0, 0, 0]
#: Without the first line, interpreters with locks of their own crash CPython 3.12 or 3.13 itself.
CODE = """import os, sys; sys.modules |= dict.fromkeys(('_datetime', '_decimal', '_hashlib', '_ssl'))
try: from stress import interpreters; interpreters.{}
except BaseException: sys.excepthook(*sys.exc_info()); os._exit(1)"""


def load():
    """Imports what the module does, but not the module itself."""
    names = {name for _, name, _ in iter_modules(import_module("sablecrest").__path__, "sablecrest.")} - {NAME}
    for name in ["importlib.util", "secrets", "urllib.request", *sorted(names)]:
        import_module(name)


def use(number):
    """What it makes last is left to the interpreter's end."""
    global used, left
    load()
    used = m = import_module(NAME)
    assert m._config["market_id"] is m._auth_manager is None
    methods = dict.fromkeys(("authenticate", "get_token", "get_token_expiry", "get_wallet_address"), str)
    m.auth.AuthManager = lambda *_, **__: SimpleNamespace(**methods)
    m._fetch_eras_payload = lambda am: {"eras_by_market": {number: [{"universes": [f"u{number}"]}]}}
    with tempfile.TemporaryDirectory() as folder, suppress(RuntimeError):
        m.configure(data_dir=folder, market_id=number, rotation_seed=number)
        left = m.register("code"), m.login("ab" * 32), m.create_runtime_freshness_guard(folder)
        left += (m._runtime_module_manifest_entries({"files": {"a": {"kind": "runtime_module"}, "b": {}}}),)
        left += next(left[-1]), m._ensure_legacy_src_namespace_alias(), m._LocalRuntimeSyncManager({}, left).acquire
        m.register(bootstrap_runtime=True)


def check(number):
    """After those at its side have used theirs."""
    assert [used._config["market_id"], used._config["named_universe"]] == [number, f"u{number}"]


def live(calls, met, number, one):
    for call in calls:
        interpreters.run_string(one, CODE.format(call.format(1 + number)))
        met.wait()
    interpreters.destroy(one)


def live_and_die(calls):
    """Some interpreters side by side, two of each kind."""
    # CPython may fail to create an interpreter while others run. A pool that was used may start too few threads, as it
    # takes one for idle that has just found work.
    made = [interpreters.create(**LOCKS[number % 2]) for number in range(SIDE_BY_SIDE)]
    with ThreadPoolExecutor(SIDE_BY_SIDE) as pool:
        list(pool.map(partial(live, calls, Barrier(SIDE_BY_SIDE)), range(SIDE_BY_SIDE), made))


def growth(*calls):
    from stress import leaks  # here, as the interpreters import this file too

    grown = leaks.growth(partial(live_and_die, calls))
    assert leaks.native._config["market_id"] is None
    return grown


def main():
    from stress.child import in_child

    processes = 1 if "--short" in sys.argv else 190
    without = in_child(growth, "load()")
    native = [in_child(growth, "use({})", "check({})") for _ in range(processes)]
    findings = [n for n in native if not isinstance(n, list) or any(x > y + z for x, y, z in zip(n, without, SLACK))]
    print(f"{16 * processes} interpreters, {len(findings)} findings, {without} without it", *findings, sep="\n    ")
    return findings
