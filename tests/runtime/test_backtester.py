"""The bundled backtester: imported afresh for each data directory, missing, or broken."""

import os
import sys
from types import ModuleType

from sablecrest import simulator_engine
from support.cases import GONE, Case, checked, given

NAME = "sablecrest.simulator_engine.backtest"


def load(m, **ignored):
    loaded = m._load_per_era_backtester("~/data/.", **ignored)
    fresh = loaded is sys.modules[NAME] is vars(simulator_engine).pop("backtest")
    return fresh, sys.path[0], sys.path.count(sys.path[0])


def having(content=None, era_data=None):
    """The engine's folder holds this backtester, or none; an older one is registered."""

    def prepare(module, patch):
        given({"engine/backtest.py": content} if content else {})(module, patch)
        simulator_engine.backtest, simulator_engine.__path__ = "stale", [os.path.abspath("engine")]
        patch.setattr(sys, "dont_write_bytecode", True)
        patch.setitem(sys.modules, NAME, "stale")
        patch.setitem(sys.modules, "era_data", era_data)

    return prepare


THERE, LOST = ModuleType("era_data"), {"modules": [NAME], "names": {"simulator_engine.backtest": GONE}}
NO_ERA = ("DEBUG", "Era data module is not loaded for data dir %s", "~/data/.")
LOG = [NO_ERA, ("INFO", "Loaded wheel-bundled backtester %s for data dir %s", NAME, "~/data/.")] * 2
TRIED = ModuleNotFoundError(f"No wheel-bundled backtester module found; tried {NAME}, {NAME}, {NAME}")
MISSING, ELSE = (ModuleNotFoundError(f"No module named {name!r}", name=name) for name in (NAME, "no_module"))
CAUSES = [ValueError(), *(ImportError(name=name) for name in ("é.😀", "é", "😀", "é.😀.c", "é.", ""))]
ROWS = [
    Case("missing where it or a parent of it was not found", given(),
         lambda m: [m._module_not_found_is_candidate(cause, "é.😀") for cause in CAUSES],
         [False, True, True, False, False, False, False]),
    Case("twice", having("x = 1"), lambda m: (load(m), load(m, o=1)), ((True, "HOME/data", 1),) * 2, log=LOG, **LOST),
    Case("missing", having(None, THERE), load, raises=TRIED, cause=MISSING, **LOST),
    Case("broken", having("raise ImportError(name=__name__)", THERE), load, raises=ImportError, **LOST),
    Case("in want", having("import no_module", THERE), load, raises=ELSE, **LOST),
]  # fmt: skip


test_backtester_is_imported_afresh_or_named_as_missing = checked(ROWS)
