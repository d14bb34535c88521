"""The authenticated session and its runtime, handed to the sibling modules; how failures are told."""

import sys
from types import SimpleNamespace

import sablecrest
from sablecrest.auth import AuthError
from sablecrest.sync_backoff import SyncBackoffCancelled
from support.cases import GONE, Case, call, checked, raising
from support.subject import SIBLINGS

KEYWORDS = """auth sync_manager vault backtester search_tracker era_thread graph_validator compute_search_plan
    era_config load_vocabulary useful_signal_metadata load_found_signal_pnl signal_dir make_batch_orchestrator_cls
    correlate_per_pool compute_mi_per_pool vocabulary vocabulary_raw runtime_freshness_guard"""
#: What `init_simulate_signal` gets of a runtime that has everything, and of one that has nothing.
WHOLE = {name: f"ITS {name}" for name in KEYWORDS.split()} | {"auth": "MANAGER"}
EMPTY = dict.fromkeys(WHOLE) | {"auth": "MANAGER", "load_vocabulary": "LOAD VOCABULARY"}
FULL = SimpleNamespace(**WHOLE | dict.fromkeys(["backtester", "compute_search_plan", "vocabulary"], "not this"))
FULL.evaluator, FULL.raw_backtester = SimpleNamespace(compute_search_plan="ITS compute_search_plan"), "ITS backtester"
FULL.vocabularies, FULL.default_named_universe = {"u": "ITS vocabulary", "v": "not this"}, "u"
SET, BUILD, INIT = "auth._set_active_auth_manager", "_runtime.bootstrap_runtime", "simulate_signal.init_simulate_signal"
LOCALLY, EXPORT = "_bootstrap_local_runtime_from_config", "simulate_signal._simulate_signal_export"
UNIVERSE, EXPORTS = "_resolve_active_named_universe", "sablecrest.simulate_signal"

fails, stops, cancels = raising(Exception, "wrong"), raising(KeyboardInterrupt), raising(SyncBackoffCancelled, "c")
LOCAL, WRONG, CANCELLED, UNKNOWN = SimpleNamespace(), Exception("wrong"), SyncBackoffCancelled("c"), ModuleNotFoundError
SEARCH_RUNTIME = "search_templates._library_runtime"


def stage(changes=()):
    """A runtime that is built, with changes: names of the module, and of siblings, which may be GONE."""
    values = {BUILD: lambda *_: FULL, INIT: lambda **_: None, EXPORT: "EXPORT", LOCALLY: lambda am: LOCAL}
    values |= {"obfuscation.load_vocabulary": "LOAD VOCABULARY", SEARCH_RUNTIME: "OLD", UNIVERSE: lambda am: None}
    values |= {"_config": {"an": "option"}, "_load_per_era_backtester": "LOADER", "_auth_manager": "MANAGER"}

    def prepare(module, patch):
        for dotted, value in (values | dict(changes)).items():
            owner, _, name = dotted.rpartition(".")
            target = {"": module, "sablecrest": sablecrest}.get(owner) or SIBLINGS[owner]
            delattr(target, name) if value is GONE else setattr(target, name, value)
            if target is sablecrest:
                sys.modules[dotted] = None

    return prepare


strict, lenient = call("_propagate_auth", "MANAGER", True), call("_propagate_auth", "MANAGER")
ensure, try_to_ensure = (call("ensure_runtime_bootstrapped", *strict) for strict in ((), (False,)))


def order(runtime, locally=""):
    arguments = ", ".join(f"{name}={value!r}" for name, value in runtime.items())
    return f"""auth._set_active_auth_manager('MANAGER')
        _runtime.bootstrap_runtime('MANAGER', {{'an': 'option'}}, 'LOADER')  {locally}
        importlib.import_module('sablecrest.search_templates')  importlib.import_module('sablecrest.simulate_signal')
        import_module.init_simulate_signal({arguments})"""


def chained(error, *causes):
    error.__cause__ = chained(*causes) if causes else None
    return error


def fails_at(changes, caught, log, text, lost, names, cause=None, later=()):
    """Strict, the step raises, after `lost` was handed over; else it is logged, and `names` are handed over."""
    level, context = ("DEBUG", None) if "local" in log else ("WARNING", caught)
    error, log = RuntimeError(f"SableCrest {text}"), [(level, f"Failed to {log}: %s", caught)]
    yield Case(f"strict: {text}", stage(changes), strict, None, error, context, cause, log=log, names=lost)
    yield Case(text, stage(changes), lenient, log=[*log, *later], names=names)


AUTH, SEARCH, EXPORTED = {"auth._active_auth_manager": "MANAGER"}, {SEARCH_RUNTIME: FULL}, {EXPORTS: "EXPORT"}
UP, UP_LOCALLY, NOT_BUILT = AUTH | SEARCH, AUTH | EXPORTED | {SEARCH_RUNTIME: LOCAL}, {BUILD: lambda *_: None}
NO_RUNTIME = "Failed to initialize simulate_signal: %s", RuntimeError("private sablecrest runtime was not initialized")
NO_SEARCH, BUILT = {"sablecrest.search_templates": GONE}, {"_runtime._library_runtime": FULL, "sablecrest.auth": GONE}
NOT_INJECTED = RuntimeError("SableCrest search runtime injection failed.")
NO_WALLET = AuthError("No wallet initialized. Call register() or login() first.")
NOT_INITIALISED = "simulate_signal bootstrap failed: Exception: wrong"
AGAIN = {"log": [("WARNING", "Failed to inject existing runtime into search_templates: %s", UNKNOWN)]}
first, second = ValueError("a"), TypeError("b")
first.__context__, first.diagnostic_detail, second.diagnostic_detail = KeyError("not explicit"), 0, ["x"]
CHAINS = {
    "OSError: é; caused by ValueError; caused by OSError: ✓": chained(OSError(" é\n"), ValueError(" "), OSError("✓")),
    "OSError: a; caused by OSError: b; caused by OSError: c; caused by OSError: d": chained(*map(OSError, "abbacde")),
    "ValueError: a; caused by TypeError: b; diagnostic: ['x']": chained(first, second, first),
}
ROWS = [
    *(Case(line, stage(), call("_exception_chain_detail", error), line) for line, error in CHAINS.items()),
    Case("whole", stage(), strict, names=UP | EXPORTED, calls=order(WHOLE)),
    Case("local", stage(NOT_BUILT), strict, names=UP_LOCALLY, calls=order(EMPTY, f"{LOCALLY}('MANAGER')")),
    *fails_at({SET: fails}, WRONG, "set active auth manager", "auth bootstrap failed after authentication.",
              {}, SEARCH | EXPORTED, cause=WRONG),
    *fails_at({BUILD: fails}, WRONG, "bootstrap sablecrest runtime",
              "registration authenticated, but runtime data bootstrap failed: Exception: wrong", AUTH, UP_LOCALLY),
    *fails_at(NOT_BUILT | {LOCALLY: cancels}, CANCELLED, "bootstrap local sablecrest runtime",
              "registration authenticated, but runtime data bootstrap returned no runtime.",
              AUTH, AUTH | {SEARCH_RUNTIME: None}, later=[("WARNING", *NO_RUNTIME)]),
    *fails_at(NO_SEARCH, UNKNOWN, "inject runtime into search_templates", "search runtime injection failed.",
              AUTH, AUTH | EXPORTED),
    *fails_at({INIT: fails}, WRONG, "initialize simulate_signal", NOT_INITIALISED, UP, UP),
    *fails_at({EXPORT: GONE}, AttributeError, "restore top-level simulate exports",
              "simulate exports bootstrap failed.", UP, UP),
    Case("cancelled", stage({BUILD: cancels}), lenient, raises=CANCELLED, names=AUTH),
    *(Case(f"stopped: {step}", stage(NOT_BUILT | {step: stops}), lenient, raises=KeyboardInterrupt, names=names)
      for step, names in ((SET, {}), (BUILD, AUTH), (LOCALLY, AUTH), (INIT, AUTH | {SEARCH_RUNTIME: LOCAL}))),
    Case("nobody", stage({"_auth_manager": None, UNIVERSE: None}), ensure, raises=NO_WALLET),
    Case("built", stage(BUILT), ensure, names=SEARCH),
    Case("no search", stage(BUILT | NO_SEARCH), try_to_ensure, **AGAIN),
    Case("no search, strict", stage(BUILT | NO_SEARCH), ensure, None, NOT_INJECTED, UNKNOWN, **AGAIN),
    Case("new", stage({"_propagate_auth": lambda am, strict: am}), try_to_ensure,
         calls=f"{UNIVERSE}('MANAGER')  _propagate_auth('MANAGER', strict=False)"),
]  # fmt: skip


test_each_step_of_the_hand_over_fails_strictly_or_is_logged = checked(ROWS)
