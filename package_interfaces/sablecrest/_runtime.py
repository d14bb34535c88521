"""The search runtime: the classes that it consists of and the factories that build them from a data directory.

Besides manifest.json and the runtime modules that it lists, a data directory holds signals_index.json and, for each
named universe, features/UNIVERSE/vocabulary.json and features/UNIVERSE/EPOCH/FEATURE.csv with one number a line.
"close" is the feature that is traded. The era's compiled `era_data` module offers `read_series(path) -> list[float]`.
"""

import hashlib
import json
import os
from collections.abc import Callable
from dataclasses import dataclass, field
from types import ModuleType, SimpleNamespace
from typing import Any

from sablecrest.errors import RuntimeModuleDownloadIncomplete, RuntimeModuleHashMismatch

#: The runtime that a synchronisation service keeps for the process; None without such a service.
_library_runtime: "LibraryRuntime | None" = None


def bootstrap_runtime(am, config: dict, backtester_loader: Callable[..., ModuleType]) -> "LibraryRuntime | None":
    """Fetch an era's files from the service and build the runtime from them.

    Returns None where there is no synchronisation service, as in this package: the caller then builds the runtime from
    the files that are in the data directory already. A synchronisation that the user ends while it waits for its next
    attempt raises `sync_backoff.SyncBackoffCancelled`.
    """
    return None


def _read_manifest_payload_with_signals_index(data_dir: str) -> dict:
    """The whole manifest, with "signals_index" from signals_index.json where that file exists, else {}.

    Raises RuntimeModuleDownloadIncomplete without a manifest, ValueError for one that is not JSON.
    """
    payload = _read_json(data_dir, "manifest.json")
    if payload is None:
        raise RuntimeModuleDownloadIncomplete("Runtime manifest is missing.", relative_path="manifest.json")
    return payload | {"signals_index": _read_json(data_dir, "signals_index.json") or {}}


def _read_json(data_dir: str, name: str) -> Any:
    try:
        with open(os.path.join(data_dir, name), "rb") as file:
            return json.load(file)
    except FileNotFoundError:
        return None


class _Vault:
    """An era's data files, read by the era's compiled module where there is one."""

    def __init__(self, data_dir: str, module: ModuleType | None):
        self.data_dir = data_dir
        self.module = module

    def read(self, relative_path: str) -> list[float]:
        path = os.path.join(self.data_dir, relative_path)
        if self.module is not None:
            return self.module.read_series(path)
        with open(path, encoding="utf-8") as file:
            return [float(line) for line in file if line.strip()]


class _SyncedVault:
    """A vault that gives out listed files only with the bytes that the manifest names."""

    def __init__(self, source: _Vault, manifest: SimpleNamespace, era_config: dict):
        self.source = source
        self.manifest = manifest
        self.era_config = era_config

    def read(self, relative_path: str) -> list[float]:
        """The file's numbers; RuntimeModuleHashMismatch for other bytes than listed, OSError when unreadable."""
        expected = self.manifest.files.get(relative_path, {}).get("sha256")
        if expected:
            with open(os.path.join(self.source.data_dir, relative_path), "rb") as file:
                actual = hashlib.file_digest(file, "sha256").hexdigest()
            if actual != expected:
                raise RuntimeModuleHashMismatch(
                    f"Data file {relative_path} hash mismatch: expected {expected}, got {actual}.",
                    relative_path=relative_path,
                    expected_sha256=expected,
                    actual_sha256=actual,
                )
        return self.source.read(relative_path)


def _load_vault_module(data_dir: str, vault_module: ModuleType | None = None) -> _Vault:
    """The vault of `data_dir`, read by `vault_module`, or as plain files when that is None."""
    return _Vault(data_dir, vault_module)


def _normalize_era_config(era_config: dict | None, era_number: int, *, manifest: SimpleNamespace) -> dict:
    """A new dict: the given configuration over this era's defaults; ValueError when it is for another era."""
    defaults = {"era_number": era_number, "signal_pools": [], "useful_signals": manifest.useful_signals}
    normalized = defaults | (era_config or {})
    if normalized["era_number"] != era_number:
        raise ValueError(f"The configuration is for era {normalized['era_number']}, the manifest for {era_number}.")
    return normalized


def _wrap_synced_vault(vault: _Vault, *, manifest: SimpleNamespace, era_config: dict) -> _SyncedVault:
    """The vault with the manifest's digests enforced."""
    return _SyncedVault(vault, manifest, era_config)


def _initialize_vault_for_backtester_import(vault: _SyncedVault, *, data_dir: str, auth) -> None:
    """Put the vault where backtesters bind it when they are imported.

    A vault that can fetch missing files would do so into `data_dir` as `auth`; this one holds what is there.
    """
    from sablecrest import simulator_engine

    simulator_engine.vault = vault


def _import_batch_runtime() -> tuple[type, Callable, Any, Callable]:
    """The batch orchestrator class, the search plan, the expression class and the expression evaluator."""
    from sablecrest.simulator_engine import batch

    return batch.BatchOrchestrator, batch.compute_search_plan, batch.Expression, batch.evaluate_expression


def _build_function_registry(vocabulary_raw: dict | None) -> dict[str, Callable[[list[float]], list[float]]]:
    """The vocabulary's functions by name, all there are without a vocabulary; ValueError for an unknown name."""
    from sablecrest.simulator_engine.batch import FUNCTIONS

    if vocabulary_raw is None:
        return dict(FUNCTIONS)
    unknown = [name for name in vocabulary_raw["functions"] if name not in FUNCTIONS]
    if unknown:
        raise ValueError(f"The vocabulary names unknown functions: {', '.join(unknown)}.")
    return {name: FUNCTIONS[name] for name in vocabulary_raw["functions"]}


def _build_graph_validator(registry: dict[str, Callable]) -> Callable[[Any], None]:
    """A function that raises ValueError for an expression outside the registry."""

    def validate(expression) -> None:
        if expression.function not in registry:
            raise ValueError(f"Unknown function in {expression}.")

    return validate


class _EraThreadProxy:
    """Stands where a synchronised runtime has the thread that follows the eras; a local one stays in its era."""

    def __init__(self, era_number: int):
        self.era_number = era_number

    def is_alive(self) -> bool:
        return False


class _SearchEraConfig:
    """What a search reads of the era configuration."""

    def __init__(self, era_config: dict):
        self.signal_pools: list = era_config["signal_pools"]
        self.search_limit: int = era_config.get("search_limit", 10)


@dataclass(kw_only=True, frozen=True)
class _RuntimeManifestAdapter:
    """Names the files of one universe in one epoch as the manifest does."""

    feature_epoch: str
    named_universe: str
    era_config: dict

    def feature_path(self, feature: str) -> str:
        return f"features/{self.named_universe}/{self.feature_epoch}/{feature}.csv"

    def price_path(self) -> str:
        return self.feature_path("close")


@dataclass(kw_only=True, eq=False, repr=False)
class RuntimeEvaluationAdapter:
    """Evaluates expressions; `raw_backtester` is replaced when the era's backtester is reloaded."""

    data_dir: str
    era_config: dict
    raw_backtester: ModuleType
    vault: _SyncedVault
    manifest: SimpleNamespace
    graph_validator: Callable | None
    batch_orchestrator_cls: type | None
    compute_search_plan: Callable | None
    expression_type_cls: type | None
    expression_evaluator: Callable | None
    registry: dict[str, Callable]
    raw_vocabulary: dict | None
    named_universe: str | None
    auth: Any
    runtime_freshness_guard: Any

    def evaluate(self, expression, manifest_adapter: _RuntimeManifestAdapter) -> dict:
        """Backtest the signal that `expression` computes from the adapter's files; RuntimeError without the helpers."""
        if self.graph_validator is None or self.expression_evaluator is None:
            raise RuntimeError("Evaluating needs the graph validator and the batch helpers.")
        self.graph_validator(expression)
        signal = self.expression_evaluator(
            expression, self.registry, lambda feature: self.vault.read(manifest_adapter.feature_path(feature))
        )
        return self.raw_backtester.backtest(signal, manifest_adapter.price_path())


@dataclass(kw_only=True, eq=False, repr=False)
class LibraryRuntime:
    """Everything that the search and the simulation of one session in one era work with."""

    auth: Any
    auth_proxy: Any
    data_dir: str
    server_url: str
    sync_manager: Any
    era_number: int
    era_thread: _EraThreadProxy
    era_config: dict
    search_era_config: _SearchEraConfig
    named_universes: list[str]
    default_named_universe: str | None
    vocabularies: dict[str, dict]
    feature_dirs: dict[str, str]
    manifest_adapters: dict[str, _RuntimeManifestAdapter]
    vocabulary_raw: dict | None
    registry: dict[str, Callable]
    vault: _SyncedVault
    raw_backtester: ModuleType
    evaluator: RuntimeEvaluationAdapter
    search_tracker: Any
    runtime_freshness_guard: Any
    graph_validator: Callable | None = field(default=None, init=False)

    def __post_init__(self):
        source = self.vault.source
        if source.module is not None:
            self.runtime_freshness_guard.register_module_consumer(source.module.__name__, source, "module")

    @property
    def useful_signal_metadata(self) -> dict:
        """What is known of useful signals, by expression."""
        return self.era_config["useful_signals"]

    def load_found_signal_pnl(self, expression: str) -> float | None:
        """What a found signal earned according to the manifest, None for one that it does not list."""
        return self.sync_manager.get_manifest().found_signals.get(expression, {}).get("pnl")
