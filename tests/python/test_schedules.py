"""Calls of one thread that end in any order, threads that outlive the interpreter, and names that change meanwhile."""

import subprocess
import sys
import textwrap

import pytest

SETUP = """
import atexit, ctypes, gc, sys, threading, time, types
callback = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_int, *[ctypes.c_void_p] * 3)(lambda *_: 0)
first_watcher = ctypes.pythonapi.PyDict_AddWatcher(callback)
import sablecrest
from sablecrest import agent_onboarding, auth
"""

#: Programs that run in a process of their own, which must end well and print what stands behind them.
PROGRAMS = {
    "two calls end first in, first out": (
        """
        import greenlet
        main = greenlet.getcurrent()
        agent_onboarding._find_heartbeat = lambda path: main.switch(path)
        calls = [greenlet.greenlet(agent_onboarding.inject_heartbeat) for _ in range(2)]
        print([call.switch(path) for call, path in zip(calls, "ab")])
        for call in calls:
            call.switch("HEARTBEAT.md")
        print(open("HEARTBEAT.md").read().count("## [SableCrest]"))
        """,
        "['a', 'b']\n1\n",
    ),
    "each handler keeps the exception that it handles": (
        """
        import greenlet
        main = greenlet.getcurrent()
        def fail(path):
            raise OSError(path)
        def warn(text, path, error):
            main.switch()
            print(path, error, error is sys.exception())
        agent_onboarding.logger = types.SimpleNamespace(warning=warn)
        agent_onboarding._find_heartbeat = lambda path: path
        agent_onboarding.open = lambda path, *_, **__: fail(path)
        calls = [greenlet.greenlet(agent_onboarding.inject_heartbeat) for _ in range(3)]
        for call, path in zip(calls, "abc"):
            call.switch(path)
        for call in (calls[1], calls[0], calls[2]):
            call.switch()
        """,
        "b b True\na a True\nc c True\n",
    ),
    "each clean-up re-raises what it interrupted": (
        """
        import greenlet
        main = greenlet.getcurrent()
        sys.path.append(sys.argv[1])
        import layer_test
        def fail(name):
            raise KeyError(name)
        def run(name):
            try:
                layer_test.try_finally(lambda: fail(name), main.switch)
            except KeyError as error:
                print(name, error, error.__context__)
        calls = [greenlet.greenlet(run) for _ in range(3)]
        for call, name in zip(calls, "abc"):
            call.switch(name)
        for call in (calls[1], calls[2], calls[0]):
            call.switch()
        """,
        "b 'b' None\nc 'c' None\na 'a' None\n",
    ),
    "gevent switches inside of calls": (
        """
        import gevent, random
        auth._normalize_invite_code = lambda code: gevent.sleep(random.randrange(1, 9) / 1000) or code
        calls = [gevent.spawn(agent_onboarding._resolve_invite_code, str(n)) for n in range(100)]
        gevent.joinall(calls)
        print([call.value for call in calls] == [str(n) for n in range(100)])
        """,
        "True\n",
    ),
    "daemon threads are inside of calls when the interpreter ends": (
        """
        def wait(code):
            started.release()
            while True:
                time.sleep(0)
        started, auth._normalize_invite_code = threading.Semaphore(0), wait
        for _ in range(8):
            threading.Thread(target=agent_onboarding._resolve_invite_code, args=["a"], daemon=True).start()
        for _ in range(8):
            started.acquire()
        print("end")
        """,
        "end\n",
    ),
    "a key of the namespace changes it while it is compared": (
        """
        class Key(str):
            __hash__ = lambda self: hash("_AGENTS_MD_FRAGMENT")
            def __eq__(self, other):
                if armed:
                    armed.clear()
                    texts.append(str(len(texts)))
                    namespace.update(_AGENTS_MD_FRAGMENT=texts[-1])
                return False
        texts, armed, namespace = [], [], vars(agent_onboarding)
        kept = [(name, namespace.pop(name)) for name in [*namespace] if not name.startswith("__")]
        namespace[Key("other")] = 1
        namespace.update(kept)
        for _ in range(3):
            armed.append(True)
            print(agent_onboarding.get_agents_md_fragment(), texts)
        """,
        "0 ['0']\n1 ['0', '1']\n2 ['0', '1', '2']\n",
    ),
    "the interpreter's watchers stay free": (
        """
        agent_onboarding.get_agents_md_fragment()
        print(ctypes.pythonapi.PyDict_AddWatcher(callback) - first_watcher)
        """,
        "1\n",
    ),
    "a finalizer runs when the built-ins are gone": (
        """
        class Last:
            def __del__(self, call=agent_onboarding._sha256_file, report=sys.stdout.write, error=Exception):
                try:
                    call("nowhere")
                except error as failure:
                    report(type(failure).__name__ + "\\n")
        sys.last = Last()
        builtins = sys.modules.pop("builtins")
        del sys.last
        """,
        "FileNotFoundError\n",
    ),
    "modules that were replaced are let go of": (
        """
        import weakref
        Module = type("Module", (types.ModuleType,), {})
        agent_onboarding.os, replaced = (module := Module("os")), weakref.ref(module)
        module.fspath = str
        agent_onboarding.configure(data_dir="a")
        del agent_onboarding.os, module
        print(replaced())
        """,
        "None\n",
    ),
}


@pytest.mark.parametrize(("program", "printed"), PROGRAMS.values(), ids=PROGRAMS)
def test_any_schedule_ends_well(program, printed, tmp_path):
    import layer_test

    source = SETUP + textwrap.dedent(program)
    arguments = [sys.executable, "-c", source, str(layer_test.__file__).rpartition("layer_test")[0]]
    for _ in range(3):
        tmp_path.joinpath("HEARTBEAT.md").write_text("")
        process = subprocess.run(arguments, capture_output=True, text=True, timeout=60, check=False, cwd=tmp_path)
        assert (process.returncode, process.stdout, process.stderr) == (0, printed, "")
