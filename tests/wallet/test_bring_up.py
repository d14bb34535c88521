"""The authenticated runtime: each step's failure, strict and lenient, and the whole road against a real service."""

import sys
from functools import partial
from itertools import product
from types import SimpleNamespace

import differential
import pytest
import sablecrest
from differential import FAILURES, compare, deprive, native, run, walk
from runtime.interpreter import IS_RELEASE, kept, scenario
from sablecrest import _runtime, search_templates, simulate_signal
from sablecrest.sync_backoff import SyncBackoffCancelled

from local_service import LocalService
from runtime_modules.make_data_directory import BUILT_MODULES, make_data_directory

MODULES = BUILT_MODULES if IS_RELEASE else None
PARTS = """sync_manager vault raw_backtester search_tracker era_thread graph_validator era_config load_vocabulary auth
    useful_signal_metadata load_found_signal_pnl signal_dir make_batch_orchestrator_cls correlate_per_pool backtester
    compute_mi_per_pool vocabulary_raw runtime_freshness_guard"""
FULL = SimpleNamespace(**{part: f"the {part}" for part in PARTS.split()})
FULL.evaluator = SimpleNamespace(compute_search_plan="the plan")
FULL.vocabularies, FULL.default_named_universe = {"u": "the vocabulary", None: "none"}, "u"


def failing(error, cause=None):
    def fail():
        raise error from cause

    return fail


def bring_up(built=None, local=FULL, manager="manager", existing=None, without=None):
    """What builds a runtime returns the value, or calls the function."""

    def prepare(module, patch):
        patch.setattr(_runtime, "bootstrap_runtime", lambda *args: built() if callable(built) else built)
        patch.setattr(_runtime, "_library_runtime", existing)
        patch.setattr(simulate_signal, "init_simulate_signal", lambda **parts: None)
        module._bootstrap_local_runtime_from_config = lambda am: local() if callable(local) else local
        module._resolve_active_named_universe = lambda am: None
        module._auth_manager = manager
        if without:
            patch.delattr(*without)
            patch.setitem(sys.modules, f"{without[0].__name__}.{without[1]}", None)

    return prepare


def propagate(m, strict):
    return m._propagate_auth("manager", strict), search_templates._library_runtime, sablecrest.simulate_signal


def ensure(m, strict):
    return m.ensure_runtime_bootstrapped(strict), search_templates._library_runtime


CASES = {
    "built": bring_up(FULL, None),
    "local": bring_up(),
    "empty": bring_up(SimpleNamespace(vocabularies={}, evaluator=None)),
    "not built": bring_up(failing(RuntimeError(" "), cause=ValueError("v"))),
    "cancelled": bring_up(failing(SyncBackoffCancelled("by user"))),
    "cancelled locally": bring_up(local=failing(SyncBackoffCancelled("by user"))),
    "none": bring_up(local=None),
    "nobody": bring_up(manager=None),
    "existing": bring_up(existing=FULL),
    "no search": bring_up(existing=FULL, without=(sablecrest, "search_templates")),
    "no vocabularies": bring_up(SimpleNamespace(), without=(sablecrest, "obfuscation")),
    **{name: bring_up(without=(sablecrest, name)) for name in ("auth", "sync_backoff", "search_templates", "_runtime")},
    **{name: bring_up(without=(simulate_signal, name)) for name in ("_simulate_signal_export", "init_simulate_signal")},
}
WALKED = [("built", propagate), ("local", propagate), ("existing", ensure), ("local", ensure)]
SCENARIOS = [
    scenario(f"{case} {strict}", CASES[case], partial(call, strict=strict))
    for (case, call), strict in product(WALKED, (False, True))
]


def test_every_call_and_failure_is_that_of_plain_python(scenario, directory):
    disturbances = FAILURES | {"cancelled": [partial(SyncBackoffCancelled, "injected")]}
    assert [*walk(scenario, directory, disturbances), *deprive(scenario, directory)]


@pytest.mark.parametrize(("case", "call", "strict"), [*product(CASES, (propagate, ensure), (False, True))])
def test_outcome_is_that_of_plain_python(case, call, strict, directory):
    compare(case, scenario(case, CASES[case], partial(call, strict=strict)), directory)


@pytest.fixture
def agent(module, tmp_path):
    """Registered with a real service, and its runtime brought up from an empty directory with data files."""
    with kept(), LocalService(["code"]) as service:
        make_data_directory(tmp_path / "data", modules=MODULES)
        module.configure(server_url=service.url, data_dir=tmp_path / "data", auto_heartbeat=False)
        module.register(invite_code="code", market_id=7, bootstrap_runtime=True)
        yield SimpleNamespace(data=tmp_path / "data", requests=service.requests)


def results():
    return [*search_templates.search(), sablecrest.simulate_signal("momentum(close)")]


def test_registration_ends_with_results_that_change_with_the_files(module, agent, caplog):
    runtime, first = search_templates._library_runtime, results()
    assert (runtime.vault.source.module is not None, results()) == (IS_RELEASE, first)
    assert agent.requests.count("GET /eras") == 1

    make_data_directory(agent.data, modules=MODULES, era_number=13, era_data_version=2)
    module.ensure_runtime_bootstrapped()
    assert not [before for before, after in zip(first, results()) if before["pnl"] == after["pnl"]]
    assert search_templates._library_runtime.era_number == 13
    assert not IS_RELEASE or search_templates._library_runtime.vault.source.module.VERSION == 2
    secrets = module._auth_manager.get_token(), (agent.data / "wallet.key").read_text()
    told = caplog.text + repr([vars(runtime), module._auth_manager, runtime])
    assert not [secret for secret in secrets if secret in told]


@pytest.mark.parametrize("error", [Exception, KeyboardInterrupt])
def test_bring_up_succeeds_after_a_failure_at_each_step(error, module, agent, directory):
    def prepare(m, patch):
        m._config.update(options)
        vars(m).update(_auth_manager=manager, results=results)
        patch.setattr(search_templates, "_library_runtime", None)
        patch.setattr(simulate_signal, "_parts", None)
        patch.setattr(sablecrest, "simulate_signal", simulate_signal)
        patch.setattr(differential, "DATA", object)  # the runtime shall have its real parts

    def again(m):
        try:
            m.ensure_runtime_bootstrapped()
        except (RuntimeError, error):
            m.ensure_runtime_bootstrapped()
        return m.results()

    options, manager = dict(module._config), module._auth_manager
    case = scenario("again", prepare, again)
    clean = run(native, case, directory)
    assert clean.outcome == ("returned", repr(results()))
    for n, (name, *_) in enumerate(clean.calls[:-1]):
        trace = run(native, case, directory, {n: partial(error, "injected")})
        # Without the batch helpers the runtime is up, but cannot search.
        is_up = name == "_runtime._import_batch_runtime" and error is Exception
        assert is_up or trace.outcome == clean.outcome, (n, name)
