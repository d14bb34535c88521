"""The older names under which runtime modules import the package, and the salts that they find there."""

import os
import sys
from types import ModuleType, SimpleNamespace

import pytest
import sablecrest
from support.cases import Case, call, checked, given, patched, raising

CORE, PACKAGE_CORE = (f"{name}.obfuscation.layers.shared._core" for name in ("src", "sablecrest"))
NAMES = ["src", "src.obfuscation", "src.obfuscation.layers", "src.obfuscation.layers.shared", CORE]
HERE, BIG, ensure = sablecrest.__path__[0], 2**64, call("_ensure_legacy_src_namespace_alias")


def stop_at(stop):
    return lambda name: (raising(KeyboardInterrupt) if name == stop else ModuleType)(name)


ROWS = [
    Case("all", given(), ensure, modules=sorted([PACKAGE_CORE, *NAMES])),
    Case("no package", lambda module, patch: patch.setitem(sys.modules, "sablecrest", None), ensure),
    *(Case(f"stopped at {name}", patched("importlib.import_module", stop_at(name)), ensure, raises=KeyboardInterrupt,
           modules=modules) for name, modules in (("src", []), ("src.obfuscation", ["src"]))),
]  # fmt: skip
#: Each number is checked whole before the next one; what is no number is refused in Python's own words.
SALTS = {(-5, "x"): "market_id must be positive, got -5", (False, 1): "market_id must be positive, got False"}
SALTS |= {(1, 0): "era_number must be positive, got 0", ("1", 0): "", (-1.0, 0): "", (BIG, 1): "", (1, BIG): ""}


def test_salt_is_both_numbers_as_eight_big_endian_bytes(module):
    ensure(module)
    for salt in (sys.modules[CORE].era_number_identity_salt, sys.modules[CORE].era_salt):
        assert salt(0x0102030405060708, BIG - 1) == bytes.fromhex("0102030405060708 ffffffffffffffff")
        assert salt(era_number=256, market_id=True) == bytes.fromhex("0000000000000001 0000000000000100")
        for numbers, text in SALTS.items():
            with pytest.raises(ValueError if text else (TypeError, OverflowError), match=f"^{text}"):
                salt(*numbers)


test_names_are_registered_together_or_not_at_all = checked(ROWS)


def test_older_names_lead_to_the_package_itself(module):
    ensure(module)
    before = [sys.modules[name] for name in NAMES]
    src, core = before[0], before[-1]
    src.obfuscation = core.era_salt = core.__package__ = None
    del sys.modules[PACKAGE_CORE]
    ensure(module)
    assert [sys.modules[name] for name in NAMES] == before
    assert [(m.__name__, m.__package__) for m in before] == [*zip(NAMES, [*NAMES[:-1], NAMES[-2]])]
    assert core is sys.modules[PACKAGE_CORE] is src.obfuscation.layers.shared._core
    assert (src.__path__, src.obfuscation.__file__) == ([HERE], sablecrest.obfuscation.__file__)


#: What is registered as `src`, the package's directories, and where `src` is looked for then.
PATHS = [(None, [f"{HERE}/."], [f"{HERE}/."]), (SimpleNamespace(), None, [])]
PATHS += [(SimpleNamespace(__path__=("x",)), [f"{HERE}/.", HERE, "y", "x"], ["x", f"{HERE}/.", "y"])]


@pytest.mark.parametrize(("src", "directories", "expected"), PATHS, ids=repr)
def test_directories_of_the_package_follow_those_of_src_once(src, directories, expected, module, monkeypatch):
    names = {"__path__": directories, "__package__": "other"} if directories else {"__package__": None, "__name__": "p"}
    for name, value in {"src": src, "sablecrest": SimpleNamespace(obfuscation=1, **names)}.items():
        monkeypatch.setitem(sys.modules, name, value)
    ensure(module)
    found, core = sys.modules["src"], f"{'other' if directories else 'p'}.obfuscation.layers.shared._core"
    assert (found.__path__, found.__package__, found is (src or found)) == (expected, "src", True)
    assert core in sys.modules


def test_packages_are_kept_or_found_on_disk_before_they_are_made(module, tmp_path, monkeypatch):
    kept, parent = SimpleNamespace(__path__=5), SimpleNamespace()
    for name, found in {"src.a": parent, "src.a.b": kept, "src.a.c": 5, "other.d": 5}.items():
        monkeypatch.setitem(sys.modules, name, found)
    assert module._ensure_package_module("src.a.b") is kept
    made = [module._ensure_package_module(name) for name in ("src.a.c", "other.d")]
    assert [(m.__name__, m.__path__, m.__package__) for m in made] == [(m, [], m) for m in ("src.a.c", "other.d")]
    assert (parent.b, parent.c, sys.modules["other.d"], "other" in sys.modules) == (kept, *made, False)
    (tmp_path / "src/obfuscation").mkdir(parents=True)
    monkeypatch.syspath_prepend(tmp_path)
    ensure(module)
    assert [*map(os.path.realpath, sys.modules["src"].__path__)] == [*map(os.path.realpath, (tmp_path / "src", HERE))]
