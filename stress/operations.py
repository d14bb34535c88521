"""What the stress runs walk over: every row of the tests' tables, and what has no row."""

import ctypes
import dataclasses
import importlib
import io
import re
import secrets
import shutil
import sys
import tempfile
import urllib.request
from contextlib import suppress
from itertools import zip_longest
from pathlib import Path
from types import SimpleNamespace

import support  # noqa: F401 before anything asks for the home
from sablecrest import agent_onboarding as native
from support import cases
from support.cases import Case, all_rows, given
from support.recorder import FUNCTION, Recorder, here
from support.subject import NAME, PLAIN, load_plain

#: The plain rendering, which explains and compares; without it the runs go on without that, and say so.
plain = load_plain() if PLAIN.exists() else None
if plain is None:
    print("benchmarks/plain is missing: nothing is compared with it, and nothing explained by it.")

#: Where each operation runs, in an empty directory.
FOLDER = tempfile.TemporaryDirectory()
STAGE = Path(FOLDER.name, "stage")
#: What must not be told.
KEY, TOKEN, CODE = "ef" * 32, "TOKEN-of-the-session", "CODE-of-the-invitation"
ANSWER = b'{"eras_by_market": {"7": [5, {"state": "active", "named_universe": "u", "universes": [{"id": "w"}, "x"]}]}}'
api = ctypes.pythonapi
api.PyInterpreterState_Get.restype = api.PyInterpreterState_GetDict.restype = ctypes.c_void_p
api.PyInterpreterState_GetDict.argtypes = [ctypes.c_void_p]


def as_first_import(module, patch):
    """As in an interpreter that has not imported it, where nothing has to be compiled, which none survives."""
    patch.setattr(dataclasses, "dataclass", lambda made: made)
    borrowed = ctypes.c_void_p(api.PyInterpreterState_GetDict(api.PyInterpreterState_Get()))
    ctypes.cast(borrowed, ctypes.py_object).value.pop(NAME, None)
    sys.modules.pop(NAME)


def import_again(module):
    with suppress(RuntimeError):  # It was initialised, then memory for the rest of the import ran out.
        importlib.import_module(NAME) if module is native else load_plain()


class Accepted:
    """A client whose wallet the service has accepted, whatever happens then."""

    _registration_acknowledged, __repr__ = True, lambda _: "CLIENT"
    authenticate = __init__ = lambda *_, **__: None
    get_token, get_token_expiry, get_wallet_address = (lambda _: TOKEN), (lambda _: 1.5), (lambda _: "0xaddress")


def online(module, patch):
    """A service that accepts and answers, and a checklist."""
    given({"HEARTBEAT.md": ""}, config={"data_dir": "data", "market_id": 7})(module, patch)
    patch.setattr(secrets, "token_hex", lambda count: KEY)
    patch.setattr(module.auth, "AuthManager", Accepted)
    patch.setattr(urllib.request, "urlopen", lambda *_, **__: SimpleNamespace(read=io.BytesIO(ANSWER).read))


# fmt: off
OTHERS = [
    Case("import", as_first_import, import_again),
    Case("register", online, lambda m: repr(m.register(CODE))),
    Case("login", online, lambda m: repr(m.login(KEY))),
    Case("named universe", online, lambda m: m._resolve_active_named_universe(Accepted())),
    Case("no argument", given(), lambda m: m.login()),
    Case("argument given twice", given(), lambda m: m.login("", private_key="")),
    Case("unknown argument", given(), lambda m: m.register(colour=1)),
]
# fmt: on
#: Compiled code marks that it runs only once in a process.
OPERATIONS = {name: row for name, row in all_rows() if "compiled" not in name} | {row.name: row for row in OTHERS}


def emptied():
    shutil.rmtree(STAGE, ignore_errors=True)
    STAGE.mkdir()
    return STAGE


def staged(row, module):
    return cases.staged(row, module, emptied())


def observe(row, module, recorder=None):
    return cases.observe(row, module, emptied(), recorder)


def chain(error):
    """The exception and what it came from: its cause and context, theirs, and so on."""
    found = [error] if error else []
    for link in found:
        found += [e for e in (link.__cause__, link.__context__) if e and e not in found]
    return found


def told(seen):
    """Everything that a call has told, but what it returned."""
    errors = [(type(e).__name__, str(e), e.args, vars(e), e.__suppress_context__) for e in chain(seen.error)]
    return errors, [(record.levelname, record.getMessage(), record.args) for record in seen.records]


def differences(seen, row, steps=()):
    """From the plain rendering: the first call that differs, or else what came of it."""
    if plain:
        expected = observe(row, plain, seen.calls and Recorder(dict(steps), deep=True))
        pairs = [*zip_longest(seen.calls or (), expected.calls or ())]
        for one, other in zip(*((s.returned, *s.changes.items(), told(s), len(s.left_open)) for s in (seen, expected))):
            pairs.append([re.sub(r"\d{19}", "TIME", here(repr(cases.plain(value)))) for value in (one, other)])
        yield from [f"{ours}, in plain Python {theirs}" for ours, theirs in pairs if ours != theirs][:1]


def never_called():
    """The module's functions that no operation calls, itself or in another."""
    own, called = {f: name for name, f in vars(native).items() if getattr(f, "__module__", 0) == NAME}, set()
    own = {function: name for function, name in own.items() if isinstance(function, FUNCTION)}
    for row in OPERATIONS.values():
        with staged(row, native), suppress(BaseException):
            for function, name in own.items():
                if vars(native).get(name) is function:
                    setattr(native, name, lambda *args, f=function, **kw: (called.add(f), f(*args, **kw))[1])
            row.call(native)
    return {name for function, name in own.items() if function not in called}


def arguments():
    """Of a stress run, [--OPTION] [PATTERN]: the option, and the names of the operations that match."""
    option, pattern = (next((a for a in sys.argv[1:] if a.startswith("--") is wanted), "") for wanted in (True, False))
    return option, [name for name in OPERATIONS if re.search(pattern, name)]
