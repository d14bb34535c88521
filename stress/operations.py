"""What the stress runs walk over: every row of the tests' tables, and what has no row."""

import logging
import re
import shutil
import sys
from itertools import zip_longest
from pathlib import Path

import support  # before anything asks for the home
from sablecrest import agent_onboarding as native  # noqa: F401 which the runs take from here
from support import cases
from support.cases import Case, all_rows, call, given
from support.recorder import Recorder, here
from support.subject import PLAIN, load_plain

SHORT = "--short" in sys.argv
cases.LOGGER.addHandler(logging.NullHandler())  # or it would show what they log
#: The plain rendering, which explains and compares; without it the runs go on without that, and say so.
plain = load_plain() if PLAIN.exists() else None
if plain is None:
    print("benchmarks/plain is missing: nothing is compared with it, and nothing explained by it.")
#: Where each operation runs, in an empty directory.
STAGE = Path(support.HOME.name, "stage")
OTHERS = [Case("no argument", given(), call("login")), Case("unknown argument", given(), call("register", colour=1))]
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
        sides = [seen, observe(row, plain, seen.calls and Recorder(dict(steps), deep=True))]
        came = [(side.returned, *side.changes.items(), told(side), len(side.left_open)) for side in sides]
        came = [[re.sub(r"\d{19}", "TIME", here(repr(cases.plain(value)))) for value in values] for values in came]
        pairs = [*zip_longest(*(side.calls or () for side in sides)), *zip(*came)]
        yield from [f"{ours}, in plain Python {theirs}" for ours, theirs in pairs if ours != theirs][:1]
