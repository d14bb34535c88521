"""From an empty home to a running search: registration with the runtime, results, a new era, and a failure."""

import hashlib
import os
import sys
from pathlib import Path
from types import ModuleType, SimpleNamespace

import sablecrest
from sablecrest import agent_onboarding, search_templates
from sablecrest.errors import RuntimeModuleHashMismatch

from demo.steps import Step, local_service, run_chapter
from runtime_modules.make_data_directory import BUILT_MODULES, make_data_directory

DATA_DIR = str(Path("~/.sablecrest/data").expanduser())
PRICES_NAME = "features/majors/signal_os/close.csv"
PRICES = f"{DATA_DIR}/{PRICES_NAME}"
#: Era modules are released for this version; elsewhere the era is one that ships none.
MODULES = BUILT_MODULES if sys.version_info[:2] == (3, 12) else None


def first_run(step: Step, agent: SimpleNamespace) -> None:
    """One call registers a new agent and brings its search runtime up."""
    make_data_directory(DATA_DIR, modules=MODULES)
    step.did(f"published era 12, {'with' if MODULES else 'without'} native modules")
    agent_onboarding.configure(server_url=agent.url)
    Path("HEARTBEAT.md").write_text("# My heartbeat\n")
    step.call(agent_onboarding.register, invite_code="WELCOME", market_id=7, bootstrap_runtime=True)

    universes = agent_onboarding._config["named_universes"]
    step.did(f"asked the service for its eras: {', '.join(universes)}")
    step.expect("all universes of the active era", universes, ["majors", "midcaps", "defi", "memes"])
    runtime = search_templates._library_runtime
    step.expect("the search has the runtime of era 12", runtime.era_number, 12)
    module = runtime.vault.source.module
    step.expect("its data is read by the verified module, if any", isinstance(module, ModuleType), bool(MODULES))
    loaded = f"Loaded wheel-bundled backtester sablecrest.simulator_engine.backtest for data dir {DATA_DIR}"
    step.expect("the backtester is in the log", step.logged()[-1], f"INFO {loaded}")


def search(step: Step, agent: SimpleNamespace) -> None:
    """A search tries every function of every feature, and its first find is a milestone."""
    agent.results = step.call(search_templates.search, limit=2)
    step.expect("the better one first", agent.results[0]["sharpe"] >= agent.results[1]["sharpe"], True)
    step.expect("249 steps of trading", agent.results[0]["steps"], 249)
    nudge = "- [ ] [SableCrest] First signal found! Check status for details.\n"
    step.expect("a line in HEARTBEAT.md", nudge in Path("HEARTBEAT.md").read_text(encoding="utf-8"), True)


def simulation(step: Step, agent: SimpleNamespace) -> None:
    """A simulation earns out of sample what the prices on disk say."""
    agent.simulated = step.call(simulate_signal, "momentum(close)")
    prices = [float(line) for line in Path(PRICES).read_text().split()]
    changes = [after - before for before, after in zip(prices, prices[1:])]
    earned = sum(change if last > 0 else -change if last < 0 else 0 for last, change in zip(changes, changes[1:]))
    step.expect("the sum, computed by hand", round(agent.simulated["pnl"], 9), round(earned, 9))


def changed_prices(step: Step, agent: SimpleNamespace) -> None:
    """Prices other than those that the manifest names are refused."""
    genuine = Path(PRICES).read_bytes()
    changed = genuine.replace(b"1", b"2", 1)
    Path(PRICES).write_bytes(changed)
    step.did("changed one digit of a price")
    wanted, found = (hashlib.sha256(content).hexdigest() for content in (genuine, changed))
    mismatch = f"Data file {PRICES_NAME} hash mismatch: expected {wanted}, got {found}."
    step.refused(RuntimeModuleHashMismatch(mismatch), simulate_signal, "momentum(close)")


def new_era(step: Step, agent: SimpleNamespace) -> None:
    """A new era brings other files, and other results."""
    make_data_directory(DATA_DIR, modules=MODULES, era_number=13)
    step.did("published era 13")
    step.call(agent_onboarding.register)
    step.call(agent_onboarding.ensure_runtime_bootstrapped)
    simulated = step.call(simulate_signal, "momentum(close)")
    step.expect("the runtime is that of era 13", search_templates._library_runtime.era_number, 13)
    step.expect("the same signal earns something else", simulated["pnl"] != agent.simulated["pnl"], True)


def strict_failure(step: Step, agent: SimpleNamespace) -> None:
    """Without a manifest a strict bring-up fails."""
    os.rename(f"{DATA_DIR}/manifest.json", f"{DATA_DIR}/manifest.away")
    step.did("took the manifest away")
    step.call(agent_onboarding.register)
    text = "SableCrest registration authenticated, but runtime data bootstrap returned no runtime."
    step.refused(RuntimeError(text), agent_onboarding.ensure_runtime_bootstrapped)
    step.expect("the reason is in the log", step.logged(), [_missing_manifest()])


def lenient_failure(step: Step, agent: SimpleNamespace) -> None:
    """The same, leniently: the failure is logged, and the agent goes on without a runtime."""
    step.call(agent_onboarding.ensure_runtime_bootstrapped, strict=False)
    without = "WARNING Failed to initialize simulate_signal: private sablecrest runtime was not initialized"
    step.expect("both reasons are in the log", step.logged(), [_missing_manifest(), without])
    step.expect("the search has no runtime", search_templates._library_runtime, None)


def recovery(step: Step, agent: SimpleNamespace) -> None:
    """With the manifest back, the next bring-up succeeds, and the agent works again."""
    os.rename(f"{DATA_DIR}/manifest.away", f"{DATA_DIR}/manifest.json")
    step.did("put the manifest back")
    step.call(agent_onboarding.ensure_runtime_bootstrapped)
    [best] = step.call(search_templates.search, limit=1)
    step.expect("the best result earns something", best["pnl"] > 0, True)
    simulated = step.call(simulate_signal, best["expression"])
    step.expect("its simulation is of the same signal", simulated["expression"], best["expression"])
    key = Path(DATA_DIR, "wallet.key").read_text(encoding="ascii")
    step.expect_unseen(key, agent_onboarding._auth_manager.get_token())


def simulate_signal(expression: str) -> dict:
    return sablecrest.simulate_signal(expression)  # exported anew by each bring-up


def _missing_manifest() -> str:
    missing = f"Runtime manifest is missing at {Path(DATA_DIR, 'manifest.json')}."
    return f"DEBUG Failed to bootstrap local sablecrest runtime: {missing}"


STEPS = (
    first_run,
    search,
    simulation,
    changed_prices,
    new_era,
    strict_failure,
    lenient_failure,
    recovery,
)

if __name__ == "__main__":
    with local_service("--invite-code", "WELCOME") as url:
        run_chapter("Search runtime", STEPS, SimpleNamespace(url=url))
