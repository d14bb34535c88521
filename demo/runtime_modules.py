"""The era's native modules: loaded only with the bytes that the manifest names, reloaded when it names others."""

import hashlib
import os
import platform
import sys
from pathlib import Path
from types import SimpleNamespace

from sablecrest import agent_onboarding
from sablecrest.errors import RuntimeModuleHashMismatch, RuntimeModuleReloadFailed

from demo.steps import Step, fingerprint, on_disk, run_chapter
from runtime_modules.make_data_directory import BUILT_MODULES, make_data_directory, replace_file, write_manifest

DATA_DIR = str(Path("~/.sablecrest/data").expanduser())
MARK = os.path.expanduser("~/mark")


def publish(step: Step, era: SimpleNamespace) -> None:
    """An era's files lie in the data directory, with the manifest that names their digests."""
    manifest = make_data_directory(DATA_DIR, modules=BUILT_MODULES)
    era.guard = agent_onboarding.create_runtime_freshness_guard(DATA_DIR)
    era.paths = {name: path for path in manifest["files"] for name in ("era_data", "backtester") if f"/{name}." in path}
    step.did("published era 12 with the modules era_data and backtester")
    step.show(f"{DATA_DIR}/manifest.json", *(f"{DATA_DIR}/{path}" for path in era.paths.values()))
    step.expect("nothing is loaded yet", _loaded(), [])


def pinned_interpreter(step: Step, era: SimpleNamespace) -> None:
    """They are released for CPython 3.12 alone, so another one refuses them."""
    pin = f"SableCrest release runtime modules require CPython 3.12; running CPython {platform.python_version()}."
    advice = "Recreate the environment with python3.12 before running sablecrest start."
    step.refused(RuntimeModuleReloadFailed(f"{pin} {advice}"), era.guard.ensure_fresh)
    step.show(f"{DATA_DIR}/runtime")
    step.expect("nothing was loaded", _loaded(), [])
    step.expect("nothing was copied", _copies("era_data"), [])


def verified_load(step: Step, era: SimpleNamespace) -> None:
    """The guard loads them: the bytes on disk are those that the manifest names."""
    step.expect("both were loaded", step.call(era.guard.ensure_fresh), ["backtester", "era_data"])
    era.loaded = sys.modules["era_data"]
    copy = era.loaded.__file__
    step.show(f"{DATA_DIR}/{era.paths['era_data']}", copy)
    step.expect("what runs is the copy that its digest names", [copy], _copies("era_data"))
    digest = hashlib.sha256(Path(DATA_DIR, era.paths["era_data"]).read_bytes()).hexdigest()
    step.expect("the module carries its digest", era.loaded._sablecrest_module_sha256, digest)
    prices = era.loaded.read_series(f"{DATA_DIR}/features/majors/signal_is/close.csv")
    step.expect("it reads 250 prices", len(prices), 250)
    salt = sys.modules["backtester"].ERA_SALT
    step.expect("the backtester found the package under its older name", salt, bytes([0] * 7 + [7] + [0] * 7 + [12]))


def unchanged_modules(step: Step, era: SimpleNamespace) -> None:
    """With nothing new, nothing is loaded, not even when it is asked for."""
    before = fingerprint(f"{DATA_DIR}/runtime")
    step.expect("no module was reloaded", step.call(era.guard.ensure_fresh), [])
    module = step.call(agent_onboarding._load_manifest_runtime_module, DATA_DIR, "era_data")
    step.expect("the module is the same object", module is era.loaded, True)
    step.expect("the folder is as before", fingerprint(f"{DATA_DIR}/runtime"), before)


def tampered_file(step: Step, era: SimpleNamespace) -> None:
    """A file with one flipped bit is refused before any of it runs."""
    data_dir = os.path.expanduser("~/tampered")
    manifest = make_data_directory(data_dir, modules=BUILT_MODULES, names=["marking"])
    path = next(path for path in manifest["files"] if "/marking." in path)
    file = Path(data_dir, path)
    genuine = file.read_bytes()
    tampered = genuine[:-1] + bytes([genuine[-1] ^ 1])
    replace_file(file, tampered)
    step.did("published a module that writes ~/mark as soon as it is opened, and flipped its last bit")

    wanted, found = (hashlib.sha256(content).hexdigest() for content in (genuine, tampered))
    mismatch = f"Runtime module 'marking' hash mismatch at {path}: expected {wanted}, got {found}."
    guard = agent_onboarding.create_runtime_freshness_guard(data_dir)
    step.refused(RuntimeModuleHashMismatch(mismatch), guard.ensure_fresh)
    step.show(MARK)
    step.expect("no code of it has run", on_disk(MARK), {"mode": "absent"})
    step.expect("it is not registered", "marking" in sys.modules, False)

    replace_file(file, genuine)
    step.did("put the genuine file back")
    step.expect("the genuine one is loaded", step.call(guard.ensure_fresh), ["marking"])
    step.show(MARK)
    step.expect("it has run", os.path.exists(MARK), True)


def failing_module(step: Step, era: SimpleNamespace) -> None:
    """A module that fails while it is initialised leaves the interpreter as it was."""
    data_dir = os.path.expanduser("~/failing")
    manifest = make_data_directory(data_dir, modules=BUILT_MODULES, names=["failing"])
    path = next(path for path in manifest["files"] if "/failing." in path)
    before = dict(sys.modules)
    error = f"Runtime module 'failing' failed to load from {path}: failing cannot be initialised"
    guard = agent_onboarding.create_runtime_freshness_guard(data_dir)
    step.refused(RuntimeModuleReloadFailed(error), guard.ensure_fresh)
    step.expect("the registered modules are the same objects", dict(sys.modules) == before, True)


def update(step: Step, era: SimpleNamespace) -> None:
    """After an update the guard loads the new module and hands it to whoever uses it."""
    user = SimpleNamespace(module=era.loaded)
    era.guard.register_module_consumer("era_data", user, "module")
    make_data_directory(DATA_DIR, modules=BUILT_MODULES, era_data_version=2)
    step.did("published the second version of era_data, by rename")
    step.expect("it alone was reloaded", step.call(era.guard.ensure_fresh), ["era_data"])
    step.expect("its user has version 2", user.module.VERSION, 2)
    step.expect("the first is still itself", era.loaded.VERSION, 1)
    step.show(*_copies("era_data"))
    step.expect("both copies are kept", len(_copies("era_data")), 2)


def pruned_copies(step: Step, era: SimpleNamespace) -> None:
    """With a third version the oldest copy goes: the one in use and the newest other are kept."""
    oldest, newer = era.loaded.__file__, sys.modules["era_data"].__file__
    manifest = make_data_directory(DATA_DIR, modules=BUILT_MODULES, era_data_version=2)
    file = Path(DATA_DIR, era.paths["era_data"])
    replace_file(file, file.read_bytes() + b"\0")
    entry = manifest["files"][era.paths["era_data"]]
    entry |= {"sha256": hashlib.sha256(file.read_bytes()).hexdigest(), "size": file.stat().st_size}
    write_manifest(DATA_DIR, manifest)
    step.did("published a third version of era_data, one byte longer")
    step.expect("it was reloaded", step.call(era.guard.ensure_fresh), ["era_data"])
    step.show(oldest, newer, sys.modules["era_data"].__file__)
    kept = sorted([newer, sys.modules["era_data"].__file__])
    step.expect("these two copies are kept", _copies("era_data"), kept)


def _loaded() -> list[str]:
    return [name for name in ("backtester", "era_data") if name in sys.modules]


def _copies(name: str) -> list[str]:
    return sorted(map(str, Path(DATA_DIR, "runtime").glob(f".sablecrest-runtime-{name}-*")))


LOADING = (verified_load, unchanged_modules, tampered_file, failing_module, update, pruned_copies)

if __name__ == "__main__":
    os.environ["SABLECREST_MARK"] = MARK
    steps = LOADING if sys.version_info[:2] == (3, 12) else (pinned_interpreter,)
    run_chapter("Runtime modules", (publish, *steps), SimpleNamespace())
