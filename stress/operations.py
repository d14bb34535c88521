"""What the stress runs walk over: every row of the tests' tables, and what has no row."""

import ctypes
import dataclasses
import importlib
import logging
import re
import shutil
import sys
import tempfile
from contextlib import suppress
from itertools import zip_longest
from pathlib import Path

import support  # noqa: F401 before anything asks for the home
from sablecrest import agent_onboarding as native
from support import cases
from support.cases import Case, all_rows, given
from support.recorder import Recorder, here
from support.subject import NAME, PLAIN, load_plain

#: What every run is asked for: its short form, and operations with this in their names.
SHORT, PATTERN = "--short" in sys.argv, next((word for word in sys.argv[2:] if not word.startswith("--")), "")
cases.LOGGER.addHandler(logging.NullHandler())  # or it would show what they log
#: The plain rendering, which explains and compares; without it the runs go on without that, and say so.
plain = load_plain() if PLAIN.exists() else None
if plain is None:
    print("benchmarks/plain is missing: nothing is compared with it, and nothing explained by it.")
#: Where each operation runs, in an empty directory.
FOLDER = tempfile.TemporaryDirectory()
STAGE = Path(FOLDER.name, "stage")
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


OTHERS = [
    Case("import", as_first_import, import_again),
    Case("no argument", given(), lambda m: m.login()),
    Case("argument given twice", given(), lambda m: m.login("", private_key="")),
    Case("unknown argument", given(), lambda m: m.register(colour=1)),
]
#: Compiled code marks that it runs only once in a process.
ROWS = [*((name, row) for name, row in all_rows() if "compiled" not in name), *((row.name, row) for row in OTHERS)]
OPERATIONS = {name: row for name, row in ROWS if re.search(PATTERN, name)}


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
        sides = [seen, observe(row, plain, seen.calls and Recorder(dict(steps), deep=True))]
        came = [(side.returned, *side.changes.items(), told(side), len(side.left_open)) for side in sides]
        came = [[re.sub(r"\d{19}", "TIME", here(repr(cases.plain(value)))) for value in values] for values in came]
        pairs = [*zip_longest(*(side.calls or () for side in sides)), *zip(*came)]
        yield from [f"{ours}, in plain Python {theirs}" for ours, theirs in pairs if ours != theirs][:1]
