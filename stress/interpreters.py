"""Gives the module to many interpreters, alone and side by side, and compares what they leave with those without it."""

import os
import signal
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from contextlib import suppress
from functools import partial
from importlib import import_module
from itertools import pairwise
from pkgutil import iter_modules
from threading import Barrier
from traceback import print_exc
from types import SimpleNamespace

NAME = "sablecrest.agent_onboarding"
IS_NEW = sys.version_info >= (3, 13)
LOCKS = {"locks of their own": ["isolated"], "a shared lock": ["legacy"], "one or the other": ["isolated", "legacy"]}
SIDE_BY_SIDE = 4
COUNT = 4 * (1 + SIDE_BY_SIDE)
#: CPython leaves what is interned; the heap wavers.
SLACK = [100 * (1 + SIDE_BY_SIDE), 2**18, 0, 0, 0, 0]
#: The exit status where CPython itself could not create an interpreter, as happens now and then beside others.
NOT_CREATED = 3
#: Without the first line, interpreters with locks of their own crash CPython 3.12 or 3.13 itself.
CODE = """import os, sys; sys.modules |= dict.fromkeys(('_datetime', '_decimal', '_hashlib', '_ssl'))
try: from stress import interpreters; interpreters.{}
except BaseException: sys.excepthook(*sys.exc_info()); os._exit(1)"""


def use(number, is_used):
    """Runs in each interpreter; what it makes last is left to the interpreter's end."""
    global used, left
    names = [name for _, name, _ in iter_modules(import_module("sablecrest").__path__, "sablecrest.")]
    for name in ["importlib.util", "secrets", "urllib.request", *names]:
        if is_used or name != NAME:
            import_module(name)
    if not is_used:
        return
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


def check(number, is_used):
    """Runs in each interpreter after those at its side have used theirs."""
    assert not is_used or [used._config[k] for k in ("market_id", "named_universe")] == [number, f"u{number}"]
    if is_used:
        with suppress(RuntimeError):
            del sys.modules[NAME]
            assert not import_module(NAME)


def create(interpreters, lock):
    try:
        return interpreters.create(lock) if IS_NEW else interpreters.create(isolated=lock == "isolated")
    except Exception:
        print_exc(file=sys.__stderr__)
        os._exit(NOT_CREATED)


def live(is_used, locks, met, number):
    interpreters, lock = import_module("_interpreters" if IS_NEW else "_xxsubinterpreters"), locks[number % len(locks)]
    try:
        one = create(interpreters, lock)
        for function in ("use", "check"):
            interpreters.run_string(one, CODE.format(f"{function}({1 + number}, {is_used})"))
            met.wait()
        interpreters.destroy(one)
    except BaseException:
        print_exc(file=sys.__stderr__)
        met.abort()  # Those at its side would wait for it.
        raise


def growth(is_used, locks):
    """What the fewest of each kind is that one interpreter and then some side by side have left."""
    import faulthandler  # here, as the interpreters import this file too

    from stress.leaks import measure

    signal.alarm(0)  # Other processes may hold this one up.
    faulthandler.dump_traceback_later(300, exit=True, file=sys.__stderr__)
    measured, main = [], import_module(NAME)
    for _ in range(4):
        for count in (1, SIDE_BY_SIDE):
            # A pool that was used may start too few threads, as it takes one for idle that has just found work.
            with ThreadPoolExecutor(count) as pool:
                list(pool.map(partial(live, is_used, locks, Barrier(count)), range(count)))
        measured.append(measure(()))
    assert main._config["market_id"] is None
    return [min(b - a for a, b in pairwise(kind)) for kind in zip(*measured)]


def grown(is_used, kind):
    from stress.child import in_child

    for _ in range(3):
        if (answer := in_child(growth, is_used, LOCKS[kind])) != NOT_CREATED:
            break
        print("    repeated: CPython could not create an interpreter")
    return answer


def main(processes, kinds):
    findings = 0
    for kind in kinds:
        without, *native = (grown(number > 0, kind) for number in range(1 + processes))
        print(f"{COUNT * processes} interpreters with {kind} left", *native, f"{without} without it", sep="\n    ")
        findings += sum(not isinstance(n, list) or any(x > y + z for x, y, z in zip(n, without, SLACK)) for n in native)
    print(f"{COUNT * processes * len(kinds)} interpreters, {findings} findings")
    sys.exit(findings > 0)


if __name__ == "__main__":
    main(*((1, ["one or the other"]) if "--short" in sys.argv else (50, LOCKS)))
