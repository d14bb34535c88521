"""The module under test: the native one or its plain rendering, and how it is put back after use."""

import importlib.util
import pkgutil
import sys
from contextlib import contextmanager

# The stand-ins import these when they first need them, which is no part of any test.
import cryptography.hazmat.primitives.asymmetric.ed25519  # noqa: F401
import sablecrest
import yaml  # noqa: F401

from support import ROOT

NAME = "sablecrest.agent_onboarding"
PLAIN = ROOT / "benchmarks/plain/agent_onboarding.py"
NAMES = {name for _, name, _ in pkgutil.iter_modules(sablecrest.__path__)} - {"agent_onboarding"}
SIBLINGS = {name: importlib.import_module(f"sablecrest.{name}") for name in sorted(NAMES)}


def load_plain():
    spec = importlib.util.spec_from_file_location(NAME, PLAIN)
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


# From now on whoever imports the module gets its plain rendering.
def use_plain():
    sys.modules[NAME] = sablecrest.agent_onboarding = load_plain()


# sys.modules without what belongs to Python.
def registered():
    return {name: m for name, m in sys.modules.items() if name.partition(".")[0] not in sys.stdlib_module_names}


# The module initialises only once, so its names and options are put back; and whatever else it may change.
@contextmanager
def restored(module):
    before, path = registered(), [*sys.path]
    namespaces = [vars(m) for m in (module, sablecrest, *SIBLINGS.values())]
    kept = [(changed, dict(changed)) for changed in (*namespaces, module._config)]
    try:
        yield
    finally:
        for name in registered().keys() - before.keys():
            del sys.modules[name]
        sys.modules.update(before)
        sys.path[:] = path
        for changed, names in kept:
            changed.clear()
            changed.update(names)
