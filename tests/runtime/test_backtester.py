"""The bundled backtester: imported afresh, missing, or broken."""

import sys
from types import ModuleType

from differential import agree, write
from interpreter import scenario
from sablecrest import simulator_engine

NAME = "sablecrest.simulator_engine.backtest"


def load(m):
    return m._load_per_era_backtester("data", market_id=7, other=1) is sys.modules[NAME]


def beside(content=None, names=(NAME,) * 3):
    """What is imported in place of the bundled one, under these names."""

    def prepare(module, patch):
        write("data/backtest.py" if content else "nothing", content or "")
        patch.setattr(simulator_engine, "__path__", ["data"])
        patch.setitem(sys.modules, "era_data", ModuleType("era_data"))
        module._BACKTEST_MODULE_NAMES = names

    return prepare


def candidates(m):
    errors = [ModuleNotFoundError(name=name) for name in (None, "", "a", "a.b", "a.b.c", "b")]
    return [m._module_not_found_is_candidate(error, "a.b") for error in [*errors, ValueError()]]


SCENARIOS = [
    scenario("bundled", lambda *_: 0, load),
    scenario("missing", beside(), load),
    scenario("parent is missing", beside(names=("sablecrest.nothing.backtest",)), load),
    scenario("no names", beside(names=()), load),
    scenario("broken", beside("import nothing_of_this_name"), load),
    scenario("candidates", lambda *_: 0, candidates),
]


def test_backtester_is_imported_as_in_plain_python(scenario, directory):
    agree(scenario, directory)
