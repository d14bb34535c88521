"""Rows of tables: what is called, on what, and everything that comes of it."""

import logging
import os
import re
import runpy
from contextlib import contextmanager, suppress
from dataclasses import dataclass, field
from operator import methodcaller
from pathlib import Path
from pprint import pformat
from types import SimpleNamespace

import pytest
import sablecrest

from support import ROOT
from support.platforms import HAS_MODES
from support.recorder import Recorder, call_here, here
from support.subject import NAME, SIBLINGS, registered, restored

#: What stands in a table for a folder, and for what is no more.
FOLDER, GONE = "a folder", "gone"
#: What a row calls, by its name and arguments.
call = methodcaller
LOGGER = logging.getLogger(NAME)


# What a row leaves out did not happen. Paths are shown with HERE for the directory. Exceptions are given as an instance
# (class, arguments and attributes count) or as a class of it.
@dataclass
class Case:
    name: str
    # `prepare(module, patch)` runs in an empty directory, with a MonkeyPatch; then `call(module)` is observed.
    prepare: object
    call: object
    returns: object = None
    raises: object = None
    context: object = None
    cause: object = None
    # Separated by two blanks or a new line; only where the order matters, and after "..." only the last ones.
    calls: str | None = None
    # The files that are new or other than before: content, or (content, mode), FOLDER, "-> " and a link's target, GONE.
    files: dict = field(default_factory=dict)
    # The options that changed.
    config: dict = field(default_factory=dict)
    # The names of the module, and of siblings as "auth.name", that were bound anew.
    names: dict = field(default_factory=dict)
    # The names of `sys.modules` that were.
    modules: list = field(default_factory=list)
    # Each (level, format, arguments...).
    log: list = field(default_factory=list)
    left_open: int = 0
    # Marks of `support.platforms`.
    needs: tuple = ()


def checked(rows):
    """A test that checks each row."""

    @pytest.mark.parametrize("case", [pytest.param(row, id=row.name, marks=row.needs) for row in rows])
    def test(case, module, tmp_path):
        check(case, module, tmp_path)

    return test


def all_rows():
    """Every row of every table that this platform can run, by its file's and its own name."""
    for path in sorted(ROOT.glob("tests/*/test_*.py")):
        if "support.cases" in path.read_text("utf-8"):
            rows = [row for value in runpy.run_path(str(path)).values() if isinstance(value, list) for row in value]
            rows = [row for row in rows if isinstance(row, Case) and not any(mark.args[0] for mark in row.needs)]
            yield from ((f"{path.stem.removeprefix('test_')}: {row.name}", row) for row in rows)


# A function that does so.
def raising(error, *arguments):
    def fail(*_, **__):
        raise error(*arguments)

    return fail


def given(files=(), mode=0o600, config=(), **names):
    """A `prepare`: these files, options, and names in the module."""

    def prepare(module, patch):
        for path, content in dict(files).items():
            Path(path).parent.mkdir(exist_ok=True, parents=True)
            Path(path).write_bytes(content if isinstance(content, bytes) else content.encode())
            Path(path).chmod(mode)
        module._config.update(config)
        vars(module).update({name: dict(value) if type(value) is dict else value for name, value in names.items()})

    return prepare


def together(*prepares):
    return lambda module, patch: [prepare(module, patch) for prepare in prepares]


def patched(name, value):
    return lambda module, patch: patch.setattr(name, value)


# The value so that equal ones look the same wherever the test runs, and True is not 1.
def plain(value):
    if isinstance(value, bool | float):
        return f"<{value!r}>"
    if isinstance(value, dict):
        return {plain(key): plain(item) for key, item in value.items()}
    if isinstance(value, list | tuple):
        return type(value)(map(plain, value))
    if isinstance(value, BaseException):
        attributes = {name: getattr(value, name, None) for name in (*vars(value), "name", "path") if name[:2] != "__"}
        return type(value).__name__, plain(value.args), plain(attributes)
    return here(value) if isinstance(value, str) else value


# Only the class of what is in it, where no more is expected.
def like(value, expected):
    if isinstance(expected, list | tuple) and type(value) is type(expected) and len(value) == len(expected):
        return type(value)(map(like, value, expected))
    return expected if isinstance(expected, type) and isinstance(value, expected) else value


def show_file(path):
    if path.is_symlink() or not path.is_file():
        return f"-> {os.readlink(path)}" if path.is_symlink() else FOLDER if path.is_dir() else "special"
    content = path.read_bytes()
    with suppress(UnicodeDecodeError):
        content = content.decode().replace(os.linesep, "\n")
    return content, path.stat().st_mode & 0o7777


def open_descriptors():
    return {descriptor for descriptor in range(100) if os.path.exists(descriptor)}


# Everything that a call may change, in sections.
def state(module, directory):
    names = dict(vars(module))
    for sibling, owner in (("sablecrest", sablecrest), *SIBLINGS.items()):
        names |= {f"{sibling}.{name}": value for name, value in vars(owner).items()}
    files = {path.relative_to(directory).as_posix(): show_file(path) for path in Path(directory).rglob("*")}
    return {"files": files, "config": dict(names.get("_config", ())), "names": names, "modules": registered()}


def changed(was, now):
    pairs = {name: (was.get(name, GONE), now.get(name, GONE)) for name in was.keys() | now.keys()}
    return {name: new for name, (old, new) in pairs.items() if new is not old and plain(new) != plain(old)}


@contextmanager
def staged(case, module, directory):
    """Everything in place for `case.call`, and put back."""
    with restored(module), pytest.MonkeyPatch.context() as patch:
        patch.chdir(directory)
        call_here(directory)
        case.prepare(module, patch)
        yield patch


def observe(case, module, directory, recorder=None):
    """All that can be told of a call, as the attributes returned, error, calls, records, left_open and changes."""
    seen = SimpleNamespace(returned=None, error=None, records=[], calls=recorder and recorder.calls)
    with staged(case, module, directory) as patch:
        LOGGER.setLevel(logging.DEBUG)
        patch.setattr(LOGGER, "handle", seen.records.append)
        if recorder:
            recorder.install(module, patch)
        before, descriptors = state(module, directory), open_descriptors()
        try:
            seen.returned = case.call(module)
        except BaseException as error:
            seen.error = error
        seen.left_open = open_descriptors() - descriptors
        for descriptor in seen.left_open:
            os.close(descriptor)
        after = state(module, directory)
        seen.changes = {section: changed(before[section], after[section]) for section in after}
    return seen


# Without the mode where the row gives none, or the platform has none.
def as_expected(file, expected):
    if isinstance(file, tuple) and isinstance(expected, tuple):
        return file if HAS_MODES else (file[0], expected[1])
    return file[0] if isinstance(file, tuple) else file


def check(case, module, directory):
    """Compares what the row says with what is seen."""
    seen = observe(case, module, directory, None if case.calls is None else Recorder())
    error = seen.error
    actual = seen.changes | {
        "returns": seen.returned,
        "raises": error,
        "context": error and error.__context__,
        "cause": error and (error.__cause__ or (error.__suppress_context__ and "from None") or None),
        "calls": seen.calls,
        "files": {path: as_expected(file, case.files.get(path)) for path, file in seen.changes["files"].items()},
        "modules": sorted(seen.changes["modules"]),
        "log": [(record.levelname, record.msg, *record.args) for record in seen.records],
        "left_open": len(seen.left_open),
    }
    expected = {name: getattr(case, name) for name in actual}
    if case.calls is not None:
        expected["calls"] = [call for call in re.split(r"\s*\n\s*|\s{2,}", case.calls) if call]
        if expected["calls"][:1] == ["..."]:
            actual["calls"] = ["...", *actual["calls"][1 - len(expected["calls"]) :]]
    sides = {what: (plain(right), plain(like(actual[what], right))) for what, right in expected.items()}
    wrong = [f"{what}\nexpected {pformat(a)}\nactual   {pformat(b)}" for what, (a, b) in sides.items() if a != b]
    if wrong:
        pytest.fail("\n".join([case.name, *wrong]), pytrace=False)
