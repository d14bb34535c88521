"""The older names under which runtime modules import the package, and the salts of the core module."""

import importlib
import os
import sys
from itertools import product
from types import ModuleType

import sablecrest
from differential import agree, compare, native
from interpreter import kept, scenario

CORE = "src.obfuscation.layers.shared._core"
NUMBERS = [1, 0, -1, True, "1", 1.0, None, 2**64 - 1, 2**64]


def ensure(m):
    return m._ensure_legacy_src_namespace_alias()


def having(**modules):
    """Registered, packages with a path and others without."""

    def prepare(module, patch):
        os.makedirs("other/src/obfuscation")
        patch.syspath_prepend("other" if not modules else ".")
        for name, path in modules.items():
            registered = ModuleType(name.replace("__", "."))
            vars(registered).update({} if path is None else {"__path__": path})
            patch.setitem(sys.modules, registered.__name__, registered)

    return prepare


def salts(m):
    ensure(m)
    results = []
    for numbers in product(NUMBERS, NUMBERS):
        try:
            results.append([sys.modules[CORE].era_number_identity_salt(*numbers), sys.modules[CORE].era_salt(*numbers)])
        except (TypeError, ValueError, OverflowError) as error:
            results.append(str(error) if not isinstance(error, OverflowError) else "overflow")
    return results


SCENARIOS = [
    scenario("new, twice", lambda *_: 0, lambda m: (ensure(m), ensure(m))),
    scenario("on disk", having(), ensure),
    scenario("packages", having(src=["x", f"{sablecrest.__path__[0]}/.", "x"], src__obfuscation=[]), ensure),
    scenario("no packages", having(src=None, src__obfuscation=None), ensure),
    scenario("no sablecrest", lambda m, patch: patch.setitem(sys.modules, "sablecrest", None), ensure),
    scenario(
        "others", having(), lambda m: [m._ensure_package_module(name) for name in ("other.a.b", "other", "src.a")]
    ),
    scenario("names", lambda *_: 0, lambda m: [m._legacy_src_module_name(*p) for p in ("", "a", "abc", ("a", 5))]),
]


def test_aliases_are_registered_as_in_plain_python(scenario, directory):
    agree(scenario, directory)


def test_salts_are_those_of_plain_python(directory):
    compare("salts", scenario("salts", lambda *_: 0, salts), directory)


def test_older_names_resolve_without_duplicates():
    with kept():
        ensure(native)
        core, src = importlib.import_module(CORE), sys.modules["src"]
        ensure(native)
        assert importlib.import_module(CORE) is core is sys.modules["sablecrest.obfuscation.layers.shared._core"]
        assert src.obfuscation.layers.shared._core is core
        assert (src.__path__, src.obfuscation.load_vocabulary.__module__) == ([*sablecrest.__path__], "src.obfuscation")
        assert core.era_salt(era_number=2, market_id=1) == bytes([0] * 7 + [1] + [0] * 7 + [2])
