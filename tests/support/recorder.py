"""What the module does while it is called: each of its calls as a readable line, any of which can be made to fail."""

import io
import logging
import os
import re
import sys
from collections.abc import Mapping
from functools import wraps
from types import BuiltinFunctionType, FunctionType, MethodType, ModuleType, SimpleNamespace

import sablecrest

from support.subject import NAME, SIBLINGS

FUNCTION = FunctionType | BuiltinFunctionType | MethodType
#: What a call returns is handed on as it is, if it is of these types; calls of anything else's methods are recorded.
DATA = str | bytes | int | float | None | tuple | list | set | Mapping | SimpleNamespace | os.PathLike | ModuleType
FLAGS = ["O_WRONLY", "O_RDWR", "O_CREAT", "O_EXCL", "O_TRUNC", "O_APPEND", "O_NONBLOCK", "O_NOFOLLOW"]
_folders = {}


def call_here(directory):
    _folders.update(HERE=os.path.realpath(directory), HOME=os.path.expanduser("~"))


# The text without what differs from run to run: directories are HERE and HOME, and there are no addresses.
def here(text):
    for name, folder in _folders.items():
        text = text.replace(folder.replace("\\", "\\\\"), name).replace(folder, name)
    text = re.sub(r"(HERE|HOME)[\\/\w.-]*", lambda found: re.sub(r"\\+", "/", found[0]), text)
    return re.sub(r" at 0x\w+|\b(Posix|Windows)(?=Path\()", "", text)


class Recorder:
    """Replaces what the module's functions call, in its namespace and in the package."""

    # `calls` has a line for each call that the functions which a test calls make themselves; with `deep`, also for
    # those of the module's functions which these call. Before the n-th call `steps[n]()` is called, and what it
    # returns, if anything, raised.

    def __init__(self, steps=None, deep=False):
        self.calls, self.steps, self.deep = [], steps or {}, deep
        self._depth, self._opened = 0, set()

    def install(self, module, patch):
        for name, value in ({"open": open} | vars(module)).items():
            patch.setitem(vars(module), name, self.watch(name, value))
        for name, sibling in SIBLINGS.items():
            for namespace, key in ((vars(sablecrest), name), (sys.modules, f"sablecrest.{name}")):
                if namespace.get(key) is sibling:
                    patch.setitem(namespace, key, self.watch(name, sibling))

    # The value, or a stand-in that records the calls of it, or of what hangs below it.
    def watch(self, label, value):
        if isinstance(value, ModuleType | logging.Logger):
            return Watched(self, label, value)
        is_class = isinstance(value, type) and "." in label and not issubclass(value, BaseException)
        return self._recorded(label, value) if is_class or isinstance(value, FUNCTION) else value

    def _recorded(self, label, function):
        is_own = getattr(function, "__module__", None) == NAME

        @wraps(function, assigned=("__name__",), updated=())
        def call(*args, **kwargs):
            depth = self._depth
            if depth == 0 and is_own:
                self._depth = 1  # a test's own call
            elif depth == 1:
                self._begin(label, args, kwargs)
                self._depth = 1 if is_own and self.deep else 2  # what others call is their own affair
            try:
                closes = depth == 1 and label.endswith(("close", "__exit__"))  # it closes even where it fails
                result = function(*args, **kwargs) if closes else None
                if depth == 1 and (error := self.steps.get(len(self.calls) - 1, bool)()):
                    raise error
                result = result if closes else function(*args, **kwargs)
            finally:
                self._depth = depth
            if label == "os.open":
                self._opened.add(result)
            if is_own or depth != 1 or isinstance(result, DATA | FUNCTION):
                return result
            return Watched(self, "file" if isinstance(result, io.IOBase) else label.rpartition(".")[2], result)

        return call

    def _begin(self, label, args, kwargs):
        shown = [*map(self._show, args), *(f"{name}={self._show(value)}" for name, value in kwargs.items())]
        if label == "os.open":
            flags = [name for name in FLAGS if args[1] & getattr(os, name, 0)]
            shown[1:] = ["|".join(flags if args[1] & 3 else ["O_RDONLY", *flags]), *map(oct, args[2:])]
        elif label.startswith("_stat.") or label.endswith("chmod"):
            shown[-1] = oct(args[-1])
        self.calls.append(f"{label}({', '.join([] if label.endswith('__exit__') else shown)})")

    def _show(self, value):
        return "fd" if type(value) is int and value in self._opened else here(repr(value))


class Watched:
    """Stands in for a module, or for what a recorded call returned."""

    def __init__(self, recorder, label, target):
        vars(self).update(_recorder=recorder, _label=label, _target=target)

    def __getattr__(self, name):
        return self._recorder.watch(f"{self._label}.{name}", getattr(self._target, name))

    def __setattr__(self, name, value):
        setattr(self._target, name, value)

    def __delattr__(self, name):
        delattr(self._target, name)

    def __enter__(self):
        entered = self._target.__enter__()
        return self if entered is self._target else entered

    def __exit__(self, *error):
        return self.__getattr__("__exit__")(*error)

    def __eq__(self, other):
        return self._target == getattr(other, "_target", other)

    def __repr__(self):
        return repr(self._target)
