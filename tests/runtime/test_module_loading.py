"""Runtime modules: what is loaded, what is refused before any of it runs, and what a failure leaves."""

import os
import platform
import re
import sys
from contextlib import nullcontext
from functools import partial
from pathlib import Path
from types import ModuleType, SimpleNamespace

import pytest
from differential import agree, compare, native, run
from interpreter import IS_RELEASE, kept, scenario
from sablecrest.errors import RuntimeModuleReloadFailed

from runtime_modules.make_data_directory import BUILT_MODULES, make_data_directory, replace_file, write_manifest

RUNNING = f"SableCrest release runtime modules require CPython 3.12; running CPython {platform.python_version()}."
PIN = re.escape(f"{RUNNING} Recreate the environment with python3.12 before running sablecrest start.")


def publish(*names, directory="data", **changes):
    """A data directory with these compiled modules; their entries in the manifest have the changes."""
    manifest = make_data_directory(directory, modules=BUILT_MODULES, names=names, universes=[])
    for path in manifest["files"]:
        if path.startswith("runtime/"):
            manifest["files"][path].update(changes)
            file = Path(directory, path)
    write_manifest(directory, manifest)
    return manifest, file


def load(m, name="marking", **options):
    module = m._load_manifest_runtime_module("data", name, **options)
    return module.__name__, sorted(vars(module)), module._sablecrest_module_source_path


def load_all(m):
    return m._load_runtime_modules_from_manifest("data", m._read_manifest("data")).keys()


def case(*names, previous=None, then=lambda module, patch: None, **changes):
    def prepare(module, patch):
        publish(*names, **changes)
        for name in names:
            patch.setitem(sys.modules, name, previous)
        then(module, patch)

    return prepare


def unwritable(module, patch):
    patch.setattr(os, "link", lambda path, target: os.stat("not permitted"))
    patch.setattr(module.shutil, "copy2", lambda path, target: os.stat("not permitted"))


def instead(**names):
    return lambda module, patch: vars(module).update(names)


CASES = {
    "no digest": (case("marking", sha256=None), load),
    "expected in vain": (case("marking"), partial(load, expected_sha256="0")),
    "given": (case("marking"), partial(load, manifest={"files": {"nowhere": {"kind": "runtime_module:marking"}}})),
    "not listed": (case("marking", kind=""), partial(load, expected_sha256="0")),
    "other size": (case("marking", size=1), load),
    "no file": (case("marking", then=lambda *_: [path.unlink() for path in Path("data/runtime").iterdir()]), load),
    "no manifest": (lambda *_: None, load),
    "unwritable": (case("marking", then=unwritable), load),
    "unstamped": (case("marking", then=instead(_load_extension_from_path=lambda *_: SimpleNamespace())), load),
    "pin": (case("marking", then=instead(sys=SimpleNamespace(version_info=(3, 13, "x", 1)))), load),
    "all": (case("vault", "era_data", "backtester", "failing"), load_all),
    "twice": (case("marking", "replacing", kind="runtime_module:marking"), load_all),
    "none": (case("marking", platform="other"), load_all),
}


@pytest.mark.parametrize("name", CASES)
def test_outcome_is_that_of_plain_python(name, directory):
    compare(name, scenario(name, *CASES[name]), directory)


SCENARIOS = [
    scenario("compiled", case("backtester", previous=ModuleType("previous")), partial(load, name="backtester"))
]


def test_exception_at_any_step_of_a_load_leaves_what_was_registered(scenario, directory):
    for trace in agree(scenario, directory):
        if trace.outcome[0] == "raised" and "KeyboardInterrupt" not in trace.outcome[1][0][1]:
            assert "'backtester': " not in trace.state[0]


@pytest.mark.parametrize("previous", [None, ModuleType("previous")])
@pytest.mark.parametrize("name", ["marking", "failing", "interrupted", "replacing", "replacing_and_failing"])
def test_compiled_module_leaves_registered_what_it_does_in_plain_python(name, previous, directory):
    trace = compare(name, scenario(name, case(name, previous=previous), partial(load, name=name)), directory)
    assert (f"'{name}': " in trace.state[0]) == (name != "failing")


DAMAGE = {
    "none": lambda content, digest: (content, digest),
    "other digest": lambda content, digest: (content, "0" * 64),
    "upper case": lambda content, digest: (content, digest.upper()),
    "beginning of the digest": lambda content, digest: (content, digest[:16]),
    "flipped bit": lambda content, digest: (content[:-1] + bytes([content[-1] ^ 1]), digest),
    "truncated": lambda content, digest: (content[:-1], digest),
}


@pytest.mark.parametrize("damage", DAMAGE)
def test_nothing_of_a_refused_file_runs(damage, tmp_path, monkeypatch):
    monkeypatch.setenv("SABLECREST_MARK", str(tmp_path / "mark"))
    manifest, file = publish("marking", directory=tmp_path)
    entry = manifest["files"][f"runtime/{file.name}"]
    content, entry["sha256"] = DAMAGE[damage](file.read_bytes(), entry["sha256"])
    replace_file(file, content)
    write_manifest(tmp_path, manifest)
    runs = IS_RELEASE and damage == "none"
    with kept():
        with nullcontext() if runs else pytest.raises(Exception, match="hash mismatch" if IS_RELEASE else PIN):
            native._load_manifest_runtime_module(tmp_path, "marking")
        assert ("marking" in sys.modules, (tmp_path / "mark").exists()) == (runs, runs)
    assert len([*tmp_path.glob("runtime/.sable*")]) == runs


def test_guard_reloads_what_was_replaced_and_keeps_two_copies(tmp_path):
    stale, other = (tmp_path / f"runtime/.sablecrest-runtime-{name}-0.so" for name in ("era_data", "backtester"))
    guard, user = native.create_runtime_freshness_guard(tmp_path), SimpleNamespace()
    guard.register_module_consumer("era_data", user, "module")
    with kept():
        make_data_directory(tmp_path, modules=BUILT_MODULES)
        if not IS_RELEASE:
            with pytest.raises(RuntimeModuleReloadFailed, match=PIN):
                guard.ensure_fresh()
            return
        for copy in (stale, other):
            copy.touch()
            os.utime(copy, (0, 0))
        assert guard.ensure_fresh() == ["backtester", "era_data"]
        first, changed = user.module, (tmp_path / "runtime").stat().st_mtime_ns
        assert native._load_manifest_runtime_module(tmp_path, "era_data") is first
        assert (guard.ensure_fresh(), (tmp_path / "runtime").stat().st_mtime_ns) == ([], changed)

        make_data_directory(tmp_path, modules=BUILT_MODULES, era_data_version=2)
        assert guard.ensure_fresh() == ["era_data"]
        copies = {str(other), sys.modules["backtester"].__file__, first.__file__, user.module.__file__}
        assert ({*map(str, tmp_path.glob("runtime/.sable*"))}, first.VERSION, user.module.VERSION) == (copies, 1, 2)
        assert native._sha256_file(first.__file__) == first._sablecrest_module_sha256


def test_file_replaced_by_rename_is_loaded_as_the_documents_tell(tmp_path):
    def replace():
        [path], [newer] = Path("data/runtime").glob("era_data.*"), BUILT_MODULES.glob("era_data_2.*")
        replace_file(path, newer.read_bytes())

    def call(m):
        module = m._load_manifest_runtime_module("data", "era_data")
        return module.VERSION, module._sablecrest_module_sha256

    window = scenario("window", case("era_data"), call)
    clean = run(native, window, tmp_path / "clean")
    steps = [name for name, *_ in clean.calls]
    _, _, opened_again = [n for n, name in enumerate(steps) if name == "open"]
    for n in range(1, len(steps)):
        # Each in a directory of its own: the dynamic linker knows a library by its path.
        trace = run(native, window, tmp_path / str(n), {n: replace})
        if n > steps.index("os.link"):
            assert trace.outcome == clean.outcome
        elif n > opened_again:
            assert trace.outcome == ("returned", clean.outcome[1].replace("(1, ", "(2, "))
        else:
            assert trace.outcome[0] == "raised"
