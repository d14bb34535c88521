"""The assembly of the local runtime: each call with its arguments, in order, and what each failure does."""

import json
import sys
from types import ModuleType

import differential
import pytest
from differential import Proxy, agree, compare, write
from interpreter import scenario
from sablecrest import _runtime, obfuscation, search_tracking
from sablecrest.runtime_module_freshness import RuntimeFreshnessGuard

PAYLOAD = {"era_number": "12", "files": {"x": {}}, "found_signals": {"s": 1}, "found_strategies": []}
POOLS = {"signal_pools": [{"allowed_named_universes": ["v", "u"]}], "search_limit": 3}
#: Classes that are instantiated, which is recorded as for functions, and what is imported by name.
MADE = ["RuntimeEvaluationAdapter", "LibraryRuntime", "_RuntimeManifestAdapter", "_EraThreadProxy", "_SearchEraConfig"]
IMPORTED = [(search_tracking, "SearchTracker"), (obfuscation, "load_vocabulary")]


def as_function(called):
    return lambda *args, **keywords: called(*args, **keywords)


def era(payload=PAYLOAD, modules=None, without="nothing", batch=None, **options):
    def prepare(module, patch):
        write("data/manifest.json", json.dumps(payload))
        write("data/signals_index.json", '{"i": 1}')
        write("data/features/u/vocabulary.json", '{"features": ["close"], "functions": ["momentum"]}')
        module._config.update({"data_dir": "data", "named_universe": "u", "market_id": 7} | options)
        guard = RuntimeFreshnessGuard(data_dir="data", module_loader=None)
        module.create_runtime_freshness_guard = lambda data_dir: guard
        for owner, name in [*IMPORTED, *((_runtime, name) for name in MADE), (module, "_LocalRuntimeSyncManager")]:
            patch.setitem(vars(owner), name, as_function(getattr(owner, name)))
        if modules:
            module._load_runtime_modules_from_manifest = lambda data_dir, manifest: modules
        if batch:
            patch.setattr(_runtime, "_import_batch_runtime", lambda: batch)
        patch.setitem(sys.modules, f"sablecrest.{without}", None)
        imported = [(owner, name, name) for owner, name in IMPORTED]
        patch.setattr(differential, "ATTRIBUTES", differential.ATTRIBUTES + imported)
        patch.setattr(Proxy, "__repr__", lambda proxy: proxy._label)

    return prepare


def bootstrap(m):
    runtime = m._bootstrap_local_runtime_from_config("manager")
    return vars(runtime._target), runtime.graph_validator, runtime.evaluator.graph_validator


CASES = {
    "universe of the pools": era(named_universe=None, era_config=POOLS),
    "configured universe": era(era_config=POOLS, named_universes=["w", "u"]),
    "no universe": era(named_universe="", era_config={}, named_universes=["w"]),
    "no configuration": era(named_universe="", era_config=[]),
    "no vocabulary": era(named_universe="w", named_universes=("w", "x"), _settings_path="none.yaml"),
    "no era": era({}),
    "other era": era(era_config={"era_number": 1}),
    "vault": era(modules={"vault": ModuleType("vault")}),
    "era data": era(modules={"vault": ModuleType("vault"), "era_data": ModuleType("era_data")}),
    "three batch helpers": era(batch=[1, 2, 3]),
    **{f"without {name}": era(without=name) for name in ("obfuscation", "search_tracking")},
}
SCENARIOS = [scenario("whole", era(), bootstrap)]


def test_runtime_is_assembled_as_in_plain_python(scenario, directory):
    agree(scenario, directory)


@pytest.mark.parametrize("case", CASES)
def test_outcome_is_that_of_plain_python(case, directory):
    compare(case, scenario(case, CASES[case], bootstrap), directory)
