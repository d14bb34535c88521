"""What the chapters share: a step that shows what it did and checks it, what is on disk, and the local service."""

import hashlib
import logging
import os
import platform
import shutil
import stat
import subprocess
import sys
import textwrap
from collections.abc import Callable, Iterable, Iterator
from contextlib import contextmanager
from typing import Any

#: Everything that was printed.
transcript: list[str] = []


class WrongOutcome(Exception):
    """A step did something else than it should."""


class Secret(str):
    """A key or token; only the beginning of its digest is ever shown."""

    def __repr__(self) -> str:
        return f"<secret, sha256 {hashlib.sha256(self.encode()).hexdigest()[:12]}>"


class Step(logging.Handler):
    """Collects what one step did, what came back, what was logged, what is on disk and what was checked."""

    def __init__(self) -> None:
        super().__init__()
        self.lines: list[tuple[str, str]] = []
        self.checked: list[str] = []

    def emit(self, record: logging.LogRecord) -> None:
        self.lines.append(("logged", f"{record.levelname} {record.getMessage()}"))

    def did(self, text: str) -> None:
        self.lines.append(("did", text))

    def call(self, function: Callable, *arguments: Any, **keywords: Any) -> Any:
        """Call the function and show the call with its result."""
        self._show_call(function, arguments, keywords)
        result = function(*arguments, **keywords)
        if result is not None:
            self.lines.append(("got", repr(result)))
        return result

    def refused(self, error: Exception, function: Callable, *arguments: Any, **keywords: Any) -> None:
        """Call the function, which must raise an exception of exactly this class and text."""
        self._show_call(function, arguments, keywords)
        try:
            result = function(*arguments, **keywords)
        except Exception as raised:
            self.lines.append(("got", _described(raised)))
            self.expect("the error and its text", _described(raised), _described(error))
        else:
            raise WrongOutcome(f"expected {_described(error)}, found the result {result!r}")

    def logged(self) -> list[str]:
        """What the module has logged during this step."""
        return [text for label, text in self.lines if label == "logged"]

    def show(self, *paths: str) -> None:
        """Show what lies at each path."""
        for path in paths:
            self.lines.append(("disk", f"{path}  {'  '.join(map(str, on_disk(path).values()))}"))

    def expect(self, what: str, found: object, wanted: object) -> None:
        """Check one thing that the step claims."""
        if found != wanted:
            raise WrongOutcome(f"{what}: expected {wanted!r}, found {found!r}")
        self.checked.append(what)

    def expect_private(self, path: str) -> None:
        """Check that the mode keeps others out; on Windows the access list of the folder does, if anything."""
        if os.name == "posix":
            self.expect("the owner alone may read the key", on_disk(path)["mode"], "-rw-------")

    def expect_unseen(self, *secrets: str) -> None:
        """Check that no secret is in anything that has been shown, here or in an earlier step."""
        shown = "\n".join([*transcript, *(text for _, text in self.lines)])
        self.expect("no key or token was shown", [Secret(secret) for secret in secrets if secret in shown], [])

    def _show_call(self, function: Callable, arguments: tuple, keywords: dict) -> None:
        shown = [*map(repr, arguments), *(f"{name}={value!r}" for name, value in keywords.items())]
        self.did(f"{function.__qualname__}({', '.join(shown)})")


def on_disk(path: str) -> dict[str, object]:
    """What lies at a path, without ever its content."""
    path = os.path.expanduser(path)
    if not os.path.lexists(path):
        return {"mode": "absent"}
    status = os.lstat(path)
    found: dict[str, object] = {"mode": stat.filemode(status.st_mode)}
    if stat.S_ISLNK(status.st_mode):
        return found | {"target": f"-> {os.readlink(path)}"}
    if stat.S_ISDIR(status.st_mode):
        return found | {"entries": f"{len(os.listdir(path))} entries"}
    with open(path, "rb") as file:
        digest = hashlib.file_digest(file, "sha256").hexdigest()
    return found | {"size": f"{status.st_size} bytes", "sha256": f"sha256 {digest[:12]}"}


def fingerprint(path: str) -> dict[str, object]:
    """What stays the same of a file as long as nobody writes to it."""
    return on_disk(path) | {"modified": os.lstat(os.path.expanduser(path)).st_mtime_ns}


def run_chapter(title: str, steps: Iterable[Callable], *arguments: Any) -> None:
    """Run the steps in order, each with a new Step and the arguments; the process ends at the first that fails."""
    logger = logging.getLogger("sablecrest")
    logger.setLevel(logging.DEBUG)
    print(f"{title} (CPython {platform.python_version()})\n")
    for number, function in enumerate(steps, 1):
        step = Step()
        logger.addHandler(step)
        failure = _failure(function, step, *arguments)
        logger.removeHandler(step)
        _show(f"{number:3}  {'FAILED' if failure else 'ok':8}", function.__doc__ or function.__name__)
        for label, text in step.lines:
            _show(f"{'':13}{label:9}", text)
        if step.checked:
            _show(f"{'':13}checked  ", "; ".join(dict.fromkeys(step.checked)))
        if failure:
            _show(f"{'':13}failed   ", failure)
            sys.exit(1)
        print(flush=True)


@contextmanager
def local_service(*options: str) -> Iterator[str]:
    """The URL of a service in a process of its own, which ends with its standard input."""
    command = [sys.executable, "-m", "local_service", *options]
    with subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True) as process:
        assert process.stdout is not None
        url = process.stdout.readline().strip()
        if not url:
            raise RuntimeError("The local service did not start.")
        yield url


def _described(error: BaseException) -> str:
    return f"{type(error).__name__}: {error}"


def _failure(function: Callable, step: Step, *arguments: Any) -> str | None:
    try:
        function(step, *arguments)
    except WrongOutcome as wrong:
        return str(wrong)
    except Exception as error:
        return f"expected no error, found {_described(error)}"
    return None


def _show(label: str, text: str) -> None:
    width = min(shutil.get_terminal_size((118, 0)).columns, 118)
    shown = text.replace(os.path.expanduser("~"), "~")
    transcript.append(shown)
    print(textwrap.fill(shown, width, initial_indent=label, subsequent_indent=" " * len(label), break_long_words=False))
