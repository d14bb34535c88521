"""What the tests of the runtime share: ways to `prepare` a row."""

import sys
from types import SimpleNamespace


def release(module, patch=None):
    """The interpreter that runtime modules are released for, or as if it were."""
    if sys.version_info[:2] != (3, 12):
        module.sys = SimpleNamespace(version_info=(3, 12, 0), modules=sys.modules, path=sys.path)


def together(*prepares):
    return lambda module, patch: [prepare(module, patch) for prepare in prepares]


def patched(name, value):
    return lambda module, patch: patch.setattr(name, value)
