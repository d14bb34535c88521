"""What loading changes in the interpreter: recorded with a scenario, and put back."""

import sys
from contextlib import contextmanager
from types import SimpleNamespace

from differential import Proxy, Scenario, native
from sablecrest.errors import RuntimeModuleError

IS_RELEASE = sys.version_info[:2] == (3, 12)
#: How the names of the modules begin that tests register or change.
OWN = ("src", "sablecrest", "era_data", "backtester", "marking", "failing", "interrupted", "replacing", "other")


def registered():
    return {name: module for name, module in sys.modules.items() if name.startswith(OWN)}


@contextmanager
def kept():
    before, path = registered(), [*sys.path]
    names = [(vars(module), dict(vars(module))) for module in before.values() if module not in (None, native)]
    try:
        yield before
    finally:
        for name in registered().keys() - before.keys():
            del sys.modules[name]
        sys.modules.update(before)
        sys.path[:] = path
        for changed, kept in names:
            changed.clear()
            changed.update(kept)


def scenario(name, prepare, call):
    """In the interpreter that runtime modules are released for, or as if; `changes` is among the options."""

    def prepare_interpreter(module, patch):
        if not IS_RELEASE:
            module.sys = SimpleNamespace(version_info=(3, 12, 0), modules=sys.modules, path=sys.path)
        # What native code raises has no traceback.
        patch.setattr(Proxy, "__exit__", lambda proxy, *error: proxy.__getattr__("__exit__")(*error[:2], None))
        prepare(module, patch)

    def observe(module):
        config = vars(module).get("_config", {})
        with kept() as before:
            try:
                return call(module)
            except RuntimeModuleError as error:
                error.args += (vars(error),)  # to be seen in the trace
                raise
            finally:
                names = sorted({*registered(), *before})
                now = {name: sys.modules.get(name) for name in names if sys.modules.get(name) is not before.get(name)}
                texts = [
                    [item for item in vars(module).items() if isinstance(item[1], str | list)]
                    for module in now.values()
                    if module
                ]
                config["changes"] = now, texts, sys.path[0]

    return Scenario(name, prepare_interpreter, observe)
