"""The operations that every stress run walks over: each function of the module, with each outcome that it can have."""

import ctypes
import dataclasses
import importlib
import os
import re
import runpy
import shutil
import sys
import tempfile
from contextlib import contextmanager, suppress
from functools import partial
from itertools import count, product
from types import ModuleType, SimpleNamespace

import pytest
from differential import SOURCE, Scenario, native, own_functions, restored
from interpreter import scenario

from stress import TESTS

for name in ("statistics", "sablecrest.simulator_engine.batch"):
    importlib.import_module(name)  # is no part of any operation

FILES = sorted(path for path in TESTS.glob("*/test_*.py") if "SCENARIOS = " in path.read_text("utf-8"))
#: The tests' own tables: what they let fail call by call, and the further outcomes that they compare.
TABLES = {path.stem.removeprefix("test_"): SimpleNamespace(**runpy.run_path(str(path))) for path in FILES}
LOADING, BRING_UP, BOOTSTRAP = TABLES["module_loading"], TABLES["bring_up"], TABLES["bootstrap"]
ERAS, MANIFEST = TABLES["eras"], TABLES["manifest"]


def shortened(prepare):
    """Without long steps that have operations of their own."""
    steps = {"_load_per_era_backtester": lambda *_, **__: ModuleType("b"), "_ensure_legacy_src_namespace_alias": int}
    return lambda module, patch: (prepare(module, patch), vars(module).update(steps))


COMPILED = ["marking", "failing", "interrupted", "replacing", "replacing_and_failing"]
LISTED = [(t, s) for t in TABLES if t != "bootstrap" for s in TABLES[t].SCENARIOS if "[[[" not in s.name]
OUTCOMES = [Scenario(f"{table}: {s.name}", *s[1:]) for table, s in LISTED]
LOADS = LOADING.CASES | {name: (LOADING.case(name), partial(LOADING.load, name=name)) for name in COMPILED}
OUTCOMES += [scenario(f"load: {name}", shortened(prepare), call) for name, (prepare, call) in LOADS.items()]
BOOTSTRAPS = BOOTSTRAP.CASES | {"whole": BOOTSTRAP.era()}
OUTCOMES += [scenario(f"bootstrap: {n}", shortened(p), BOOTSTRAP.bootstrap) for n, p in BOOTSTRAPS.items()]
for name, call, strict in product(BRING_UP.CASES, (BRING_UP.propagate, BRING_UP.ensure), (False, True)):
    case = f"{call.__name__}: {name} {strict}"
    OUTCOMES.append(scenario(case, BRING_UP.CASES[name], partial(call, strict=strict)))
RESOLVED = [*((ERAS.OPTIONS[0], answer) for answer in ERAS.ANSWERS), *((o, ERAS.ANSWERS[0]) for o in ERAS.OPTIONS)]
OUTCOMES += [Scenario(f"resolve: {case}", *ERAS.resolve(*case)[1:]) for case in RESOLVED]
TEXTS = [text for text in MANIFEST.MANIFESTS if "[[[" not in str(text)]  # deep recursion is the interpreter's affair
OUTCOMES += [Scenario(f"manifest: {text}", MANIFEST.holding(text), MANIFEST.read) for text in TEXTS]


api = ctypes.pythonapi
api.PyInterpreterState_Get.restype = api.PyInterpreterState_GetDict.restype = ctypes.c_void_p
api.PyInterpreterState_GetDict.argtypes = [ctypes.c_void_p]


def import_afresh(module):
    """As in an interpreter that has not imported it."""
    name = native.__name__ if module is native else SOURCE.stem
    borrowed = ctypes.c_void_p(api.PyInterpreterState_GetDict(api.PyInterpreterState_Get()))
    ctypes.cast(borrowed, ctypes.py_object).value.pop(name, None)
    sys.path.append(str(SOURCE.parent))
    sys.modules.pop(name, None)

    def load():
        with suppress(RuntimeError):  # It was initialised, then memory for the rest of the import ran out.
            importlib.import_module(name)

    return load


def salt(function, *numbers):
    def make(module):
        module._ensure_legacy_src_namespace_alias()
        return partial(getattr(sys.modules["src.obfuscation.layers.shared._core"], function), *numbers)

    return make


def manager(module):
    made = module._LocalRuntimeSyncManager({}, runtime_freshness_guard=1)
    methods = [value for name in dir(made) if name[0] != "_" and callable(value := getattr(made, name))]
    return lambda: [module._LocalRuntimeSyncManager([]), *(method() for method in methods[:3])]


#: Each makes what is to be called.
OTHERS = {
    "guard's loader": lambda m: partial(m.create_runtime_freshness_guard("data")._module_loader, "name", "0"),
    "records": lambda m: lambda: (m.WalletRegistration("0xaddress"), repr(m.AuthToken("secret", 1.5))),
    "identity salt": salt("era_number_identity_salt", 1, 2**63),
    **{f"salt of {numbers}": salt("era_salt", *numbers) for numbers in ((1, 2), (0, 1), (1, "1"), (2**64, 1))},
    **{f"entries of {o}": lambda m, o=o: lambda: [*m._runtime_module_manifest_entries(o)] for o in MANIFEST.OBJECTS},
    "sync manager": manager,
    "no argument": lambda m: m.login,
    "argument given twice": lambda m: partial(m.login, "", private_key=""),
    "too many arguments": lambda m: partial(m.register, *range(6)),
    "unknown argument": lambda m: partial(m.register, colour=1),
}
OUTCOMES += [scenario(name, lambda *_: 0, lambda m, make=make: m(make(m.module))) for name, make in OTHERS.items()]
# Interpreters do not survive that what dataclasses generate is compiled without memory.
OUTCOMES += [
    scenario(
        "import",
        lambda _, p: p.setattr(dataclasses, "dataclass", lambda made: made),
        lambda m: m(import_afresh(m.module)),
    )
]
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
        patch.setattr(tempfile, "_name_sequence", map(str, count()))
        operation.prepare(module, patch)
        yield


def functions_reached(directory):
    """The names of the module's functions that the operations call, each by itself or in another."""
    reached = set()
    for operation in OPERATIONS.values():
        with staged(operation, native, directory), suppress(BaseException):
            for name, function in own_functions(native).items():
                setattr(native, name, lambda *args, f=function, **kw: (reached.add(f.__name__), f(*args, **kw))[1])
            operation.call(native)
    return reached


def arguments():
    """Of a stress run, [--OPTION] [PATTERN]: the option, and the names of the operations that match."""
    option, pattern = (next((a for a in sys.argv[1:] if a.startswith("--") is wanted), "") for wanted in (True, False))
    return option, [name for name in OPERATIONS if re.search(pattern, name)]
