"""The operations that every stress run walks over: each function of the module, with each outcome that it can have."""

import ctypes
import importlib
import os
import re
import runpy
import shutil
import sys
import tempfile
from contextlib import contextmanager
from functools import partial
from itertools import product, repeat
from pathlib import Path
from types import ModuleType, SimpleNamespace

import pytest

TESTS = Path(__file__).parents[1] / "tests"
FILES = sorted(path for path in TESTS.glob("*/test_*.py") if "SCENARIOS = " in path.read_text("utf-8"))
sys.path[:0] = [str(TESTS), *{str(path.parent) for path in FILES}]

import sablecrest.simulator_engine.batch  # noqa: E402, F401 its import is no part of any operation
from differential import SOURCE, Scenario, native, plain, restored  # noqa: E402, F401
from interpreter import scenario  # noqa: E402

#: The tests' own tables: what they let fail call by call, and the further outcomes that they compare.
TABLES = {path.stem.removeprefix("test_"): SimpleNamespace(**runpy.run_path(str(path))) for path in FILES}
LOADING, BRING_UP, BOOTSTRAP = TABLES["module_loading"], TABLES["bring_up"], TABLES["bootstrap"]
ERAS, MANIFEST = TABLES["eras"], TABLES["manifest"]
#: Long steps that have operations of their own.
SHORT = {
    "_load_per_era_backtester": lambda *_, **__: ModuleType("b"),
    "_ensure_legacy_src_namespace_alias": lambda: None,
}


def shortened(prepare):
    return lambda module, patch: (prepare(module, patch), vars(module).update(SHORT))


COMPILED = ["marking", "failing", "interrupted", "replacing", "replacing_and_failing"]
OUTCOMES = [Scenario(f"{table}: {s.name}", *s[1:]) for table in TABLES for s in TABLES[table].SCENARIOS]
LOADS = LOADING.CASES | {name: (LOADING.case(name), partial(LOADING.load, name=name)) for name in COMPILED}
OUTCOMES += [scenario(f"load: {name}", shortened(prepare), call) for name, (prepare, call) in LOADS.items()]
OUTCOMES += [scenario(f"bootstrap: {n}", shortened(p), BOOTSTRAP.bootstrap) for n, p in BOOTSTRAP.CASES.items()]
OUTCOMES += [
    scenario(f"{call.__name__}: {name} {strict}", BRING_UP.CASES[name], partial(call, strict=strict))
    for name, call, strict in product(BRING_UP.CASES, (BRING_UP.propagate, BRING_UP.ensure), (False, True))
]
OUTCOMES += [Scenario(f"resolve: {n}", *ERAS.resolve(ERAS.OPTIONS[0], a)[1:]) for n, a in enumerate(ERAS.ANSWERS)]
OUTCOMES += [
    Scenario(f"resolve for {options}", *ERAS.resolve(options, ERAS.ANSWERS[0])[1:]) for options in ERAS.OPTIONS
]
TEXTS = [text for text in MANIFEST.MANIFESTS if text is None or len(text) < 10_000]
OUTCOMES += [Scenario(f"manifest: {text}", MANIFEST.holding(text), MANIFEST.read) for text in TEXTS]


api = ctypes.pythonapi
api.PyInterpreterState_Get.restype = ctypes.c_void_p
api.PyInterpreterState_GetDict.restype, api.PyInterpreterState_GetDict.argtypes = ctypes.py_object, [ctypes.c_void_p]


def import_afresh(module):
    """As in an interpreter that has not imported it."""
    name = native.__name__ if module is native else SOURCE.stem
    api.PyInterpreterState_GetDict(api.PyInterpreterState_Get()).pop(name, None)
    sys.path.append(str(SOURCE.parent))
    sys.modules.pop(name, None)
    return lambda: [*vars(importlib.import_module(name))]


def salts(module):
    module._ensure_legacy_src_namespace_alias()
    core = sys.modules["src.obfuscation.layers.shared._core"]
    return lambda: [core.era_salt(1, 2), core.era_number_identity_salt(era_number=2**63, market_id=1)]


def manager(module):
    made = module._LocalRuntimeSyncManager({}, runtime_freshness_guard=1)
    methods = [value for name in dir(made) if name[0] != "_" and callable(value := getattr(made, name))]
    return lambda: [module._LocalRuntimeSyncManager([]), *(method() for method in methods[:3])]


#: Each makes what is to be called.
OTHERS = {
    "import": import_afresh,
    "entries": lambda m: lambda: list(m._runtime_module_manifest_entries({"files": MANIFEST.TWO})),
    "guard's loader": lambda m: partial(m.create_runtime_freshness_guard("data")._module_loader, "name", "0"),
    "records": lambda m: lambda: (m.WalletRegistration("0xaddress"), repr(m.AuthToken("secret", 1.5))),
    "salts": salts,
    "sync manager": manager,
    "no argument": lambda m: m.login,
    "argument given twice": lambda m: partial(m.login, "", private_key=""),
    "too many arguments": lambda m: partial(m.register, *range(6)),
    "unknown argument": lambda m: partial(m.register, colour=1),
}
OUTCOMES += [scenario(name, lambda *_: 0, lambda m, make=make: m(make(m.module))) for name, make in OTHERS.items()]
OPERATIONS = {outcome.name: outcome for outcome in OUTCOMES}


class Watched:
    """A module of which each function is called as `around(function, *args, **kwargs)`, and what it is called with."""

    def __init__(self, module, around=lambda function, *args, **kwargs: function(*args, **kwargs)):
        self.module, self.around = module, around

    def __getattr__(self, name):
        value = getattr(self.module, name)
        return partial(self.around, value) if callable(value) else value

    def __call__(self, function):
        return self.around(function)


@contextmanager
def staged(operation, module, directory):
    """Everything in place for `operation.call`, and put back."""
    shutil.rmtree(directory, ignore_errors=True)
    os.mkdir(directory)
    with restored(module), pytest.MonkeyPatch.context() as patch:
        patch.chdir(directory)
        patch.setattr(tempfile, "_name_sequence", repeat("temporary"))
        operation.prepare(module, patch)
        yield


def show(value):
    """As text without addresses, and without the function in which the interpreter misses an exception."""
    text = re.sub(
        r"(?<=SystemError\(')<function .*> returned NULL without setting an", "error return without", repr(value)
    )
    return re.sub(r" at 0x\w+", "", text.replace("without exception set", "without exception"))
