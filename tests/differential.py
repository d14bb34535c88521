"""Runs a scenario on the native module and on its plain rendering, undisturbed and with every call failing in turn."""

import builtins
import importlib
import io
import os
import pkgutil
import re
import shutil
import sys
from collections import namedtuple
from collections.abc import Mapping
from contextlib import AbstractContextManager, contextmanager, suppress
from functools import partial
from operator import attrgetter
from pathlib import Path
from types import BuiltinFunctionType, FunctionType, ModuleType, SimpleNamespace

import pytest
import sablecrest
from sablecrest import agent_onboarding as native

SOURCE = Path(__file__).parents[1] / "benchmarks/plain/agent_onboarding.py"
plain = ModuleType(native.__name__)
exec(compile(SOURCE.read_bytes(), SOURCE, "exec"), vars(plain))

FUNCTION = FunctionType | BuiltinFunctionType
DATA = (str, bytes, int, float, type(None), tuple, list, Mapping, SimpleNamespace, os.PathLike, ModuleType)

#: What happens before a call, and before the next one: a function is called and what it returns, if anything, raised.
FAILURES = {
    "OSError": [partial(OSError, 5, "injected")],
    "Exception": [partial(Exception, "injected")],
    "KeyboardInterrupt": [partial(KeyboardInterrupt, "injected")],
    "OSError, then Exception": [partial(OSError, 5, "injected"), partial(Exception, "injected too")],
}

#: `prepare` gets the module and a MonkeyPatch, in an empty directory; what `call` makes the module do is recorded.
Scenario = namedtuple("Scenario", "name prepare call")
#: All that can be told of a run.
Trace = namedtuple("Trace", "outcome calls state files left_open")


def write(path, content="", mode=0o600):
    Path(path).parent.mkdir(exist_ok=True, parents=True)
    Path(path).write_text(content, "utf-8", "surrogateescape", newline="")
    Path(path).chmod(mode)


def attributes_used():
    """Owner, name and dotted name of what the source uses of other modules."""
    siblings = {s: importlib.import_module(f"sablecrest.{s}") for _, s, _ in pkgutil.iter_modules(sablecrest.__path__)}
    for dotted in sorted(set(re.findall(r"\b(?:\w+\.)+[A-Za-z_]\w*", SOURCE.read_text(encoding="utf-8")))):
        path, _, name = dotted.rpartition(".")
        with suppress(AttributeError):
            owner = attrgetter(path)(SimpleNamespace(**siblings | vars(plain)))
            if isinstance(owner, ModuleType) and owner is not sys and hasattr(owner, name):
                yield owner, name, dotted


ATTRIBUTES = list(attributes_used())


def own_functions(module):
    functions = {name: value for name, value in vars(module).items() if isinstance(value, FUNCTION)}
    return {name: value for name, value in functions.items() if value.__module__ == native.__name__}


@contextmanager
def restored(module):
    """The module initialises only once, so its names and options are put back."""
    names, options = dict(vars(module)), dict(module._config)
    try:
        yield
    finally:
        for changed, kept in ((vars(module), names), (names["_config"], options)):
            changed.clear()
            changed.update(kept)


class Proxy(AbstractContextManager):
    """What a recorded call returned; its methods are recorded too."""

    def __init__(self, recorder, label, target):
        self._recorder, self._label, self._target = recorder, label, target

    def __getattr__(self, name):
        value = getattr(self._target, name)
        return self._recorder.wrap(f"{self._label}.{name}", value) if callable(value) else value

    def __exit__(self, *exception):
        return self.__getattr__("__exit__")(*exception)


class Recorder:
    """Records each call that a module makes, after taking `steps[n]` before the n-th one."""

    def __init__(self, steps):
        self.steps, self.calls, self.exceptions, self.opened, self.listening = steps, [], [], [], False

    def wrap(self, name, function, own=False):
        def recorded(*args, **kwargs):
            if not self.listening:
                return function(*args, **kwargs)
            self.listening = False  # what others call is their own affair
            self.calls.append((name, *map(self.show, (*args, *kwargs.items(), sys.exception()))))
            closing = name.endswith((".close", "__exit__"))  # it closes even where it fails
            try:
                result = function(*args, **kwargs) if closing else None
                if error := self.steps.get(len(self.calls) - 1, bool)():
                    raise error
                self.listening = own
                result = result if closing else function(*args, **kwargs)
            finally:
                self.listening = True
            if isinstance(result, io.IOBase):
                self.opened.append(result)
            return result if own or isinstance(result, DATA) else Proxy(self, f"{name}()", result)

        return recorded

    def install(self, module, patch):
        own = own_functions(module)
        places = [(vars(owner), name, dotted) for owner, name, dotted in ATTRIBUTES]
        for namespace, name, dotted in [*places, *((vars(module), name, name) for name in vars(module))]:
            if isinstance(value := namespace.get(name), FUNCTION):
                patch.setitem(namespace, name, self.wrap(dotted, value, dotted in own))
        patch.setattr(builtins, "open", self.wrap("open", open))
        vars(module)["logger"] = Proxy(self, "logger", plain.logger)

    def show(self, value):
        """As text; an exception gets a number by which it is recognised."""
        if not isinstance(value, BaseException):
            return re.sub(r" at 0x\w+", "", repr(value))
        if value not in self.exceptions:
            self.exceptions.append(value)
        return self.exceptions.index(value), repr(value)

    def show_chain(self, error, *outer):
        if not isinstance(error, BaseException) or error in outer:
            return self.show(error)
        links = [self.show_chain(link, error, *outer) for link in (error.__cause__, error.__context__)]
        return self.show(error), error.__suppress_context__, *links


def open_descriptors():
    return {fd for fd in map(int, os.listdir("/proc/self/fd")) if os.path.lexists(f"/proc/self/fd/{fd}")}


def show_file(path):
    return path.lstat().st_mode, os.readlink(path) if path.is_symlink() else path.is_file() and path.read_bytes()


def run(module, scenario, directory, steps=(), without=None):
    """The trace; `without` is an owner (None: the module itself) and the name of what it shall lack."""
    shutil.rmtree(directory, ignore_errors=True)
    directory.mkdir()
    recorder, config, before = Recorder(dict(steps)), module._config, open_descriptors()
    with restored(module), pytest.MonkeyPatch.context() as patch, pytest.MonkeyPatch.context() as recording:
        patch.chdir(directory)
        scenario.prepare(module, patch)
        recorder.install(module, recording)
        if without:
            recording.delattr(without[0] or module, without[1], raising=False)
        recorder.listening = True
        try:
            outcome = "returned", scenario.call(module)
        except BaseException as error:
            outcome = "raised", error
        recorder.listening = False
        state = repr(config), recorder.show(vars(module).get("_auth_manager"))
    left_open = open_descriptors() - before
    for close in (*(file.close for file in recorder.opened), *(partial(os.close, fd) for fd in left_open)):
        with suppress(OSError):
            close()
    files = {str(path.relative_to(directory)): show_file(path) for path in directory.rglob("*")}
    return Trace((outcome[0], recorder.show_chain(outcome[1])), recorder.calls, state, files, left_open)


def compare(what, scenario, directory, **how):
    ours, expected = (run(module, scenario, directory, **how) for module in (native, plain))
    assert ours == expected, what
    return ours


def walk(scenario, directory, disturbances=FAILURES):
    """The native traces, each found equal to the plain one: undisturbed, and each call disturbed in each way."""
    clean = compare("undisturbed", scenario, directory)
    yield clean
    for n, (name, *_) in enumerate(clean.calls[1:], 1):
        for kind, steps in disturbances.items():
            yield compare(f"{kind} at {n} ({name})", scenario, directory, steps=dict(enumerate(steps, n)))


def deprive(scenario, directory):
    """The same without each name in turn that the functions called read from the module or from others."""
    called = {name for name, *_ in compare("undisturbed", scenario, directory).calls} & own_functions(plain).keys()
    read = {name for function in called for name in vars(plain)[function].__code__.co_names}
    places = [(owner, name) for owner, name, dotted in ATTRIBUTES if {dotted.split(".")[0], name} <= read]
    for place in [*((None, name) for name in sorted(read & vars(plain).keys())), *places]:
        yield compare(f"without {place}", scenario, directory, without=place)


def agree(scenario, directory):
    return [*walk(scenario, directory), *deprive(scenario, directory)]
