"""Calls of one thread that end in any order, threads that outlive the interpreter, and names that change meanwhile."""

import ctypes
import inspect
import subprocess
import sys
import threading
import time
import types
import weakref

import pytest
from sablecrest import agent_onboarding, auth

#: The first watcher comes before the import of the module.
SETUP = """
import ctypes, sys, threading, time, types, weakref
callback = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_int, *[ctypes.c_void_p] * 3)(lambda *_: 0)
first_watcher = ctypes.pythonapi.PyDict_AddWatcher(callback)
from sablecrest import agent_onboarding, auth
"""


# Each of these runs in a process of its own, which must end well and print what stands first.
def calls_and_their_handlers_end_in_any_order():
    """['a', 'b', 'c'] b b True a a True c c True"""
    import greenlet

    def fail(path, *_, **__):
        raise OSError(path)

    def warn(text, path, error):
        main.switch()
        print(path, error, error is sys.exception())

    main = greenlet.getcurrent()
    agent_onboarding.logger = types.SimpleNamespace(warning=warn)
    agent_onboarding._find_heartbeat = lambda path: main.switch(path) or path
    agent_onboarding.open = fail
    a, b, c = calls = [greenlet.greenlet(agent_onboarding.inject_heartbeat) for _ in range(3)]
    print([call.switch(path) for call, path in zip(calls, "abc")])
    for call in (a, b, c, b, a, c):
        call.switch()


def gevent_switches_inside_of_calls():
    """True"""
    import random

    import gevent

    auth._normalize_invite_code = lambda code: gevent.sleep(random.randrange(1, 9) / 1000) or code
    calls = [gevent.spawn(agent_onboarding._resolve_invite_code, str(n)) for n in range(100)]
    gevent.joinall(calls)
    print([call.value for call in calls] == [str(n) for n in range(100)])


def daemon_threads_are_inside_of_calls_when_the_interpreter_ends():
    """end"""

    def wait(code):
        started.wait()
        while True:
            time.sleep(0)

    started, auth._normalize_invite_code = threading.Barrier(9), wait
    for _ in range(8):
        threading.Thread(target=agent_onboarding._resolve_invite_code, args=["a"], daemon=True).start()
    started.wait()
    print("end")


def a_key_of_the_namespace_changes_it_while_it_is_compared():
    """a"""

    class Key(str):
        __hash__ = lambda self: hash("_AGENTS_MD_FRAGMENT")  # noqa: E731

        def __eq__(self, other):
            if pending:
                namespace["_AGENTS_MD_FRAGMENT"] = pending.pop()
            return False

    pending, namespace = [], vars(agent_onboarding)
    kept = [(name, namespace.pop(name)) for name in [*namespace] if not name.startswith("__")]
    namespace[Key("other")] = 1
    namespace.update(kept)
    pending.append("a")
    print(agent_onboarding.get_agents_md_fragment())


def a_name_is_bound_again_at_another_place_of_the_namespace():
    """a b c"""
    for text in "abc":
        vars(agent_onboarding).pop("_AGENTS_MD_FRAGMENT" if text != "b" else "login")
        agent_onboarding._AGENTS_MD_FRAGMENT = text
        print(agent_onboarding.get_agents_md_fragment())


def modules_that_were_replaced_are_let_go_of():
    """None"""
    agent_onboarding.os = type("Module", (types.ModuleType,), {"fspath": str})("os")
    replaced = weakref.ref(agent_onboarding.os)
    agent_onboarding.configure(data_dir="a")
    del agent_onboarding.os
    print(replaced())


def the_interpreters_watchers_stay_free():
    """1"""
    agent_onboarding.get_agents_md_fragment()
    print(ctypes.pythonapi.PyDict_AddWatcher(callback) - first_watcher)  # noqa: F821


def a_finalizer_runs_when_the_built_ins_are_gone():
    """FileNotFoundError"""

    class Last:
        def __del__(self, call=agent_onboarding._sha256_file, report=sys.stdout.write, error=Exception):
            try:
                call("nowhere")
            except error as failure:
                report(type(failure).__name__)

    sys.last, sys.builtins = Last(), sys.modules.pop("builtins")
    del sys.last


PROGRAMS = [value for value in vars().values() if inspect.isfunction(value) and value.__module__ == __name__]


@pytest.mark.parametrize("program", PROGRAMS, ids=lambda program: program.__name__)
def test_any_schedule_ends_well(program, tmp_path):
    source = f"{SETUP}\n{inspect.getsource(program)}\n{program.__name__}()"
    arguments = [sys.executable, "-c", source]
    for _ in range(3):
        process = subprocess.run(arguments, capture_output=True, text=True, timeout=60, check=False, cwd=tmp_path)
        assert (process.returncode, process.stdout.split(), process.stderr) == (0, program.__doc__.split(), "")
