"""The simulation of one signal. After the bring-up, `sablecrest.simulate_signal` is the function exported here."""

from types import SimpleNamespace

from sablecrest.era_config import EpochName

_parts: SimpleNamespace | None = None


def init_simulate_signal(
    *,
    auth,
    sync_manager,
    vault,
    backtester,
    search_tracker,
    era_thread,
    graph_validator,
    compute_search_plan,
    era_config,
    load_vocabulary,
    useful_signal_metadata,
    load_found_signal_pnl,
    signal_dir,
    make_batch_orchestrator_cls,
    correlate_per_pool,
    compute_mi_per_pool,
    vocabulary,
    vocabulary_raw,
    runtime_freshness_guard,
) -> None:
    """Take over the parts of a runtime; parts that the runtime does not have are None."""
    global _parts
    _parts = SimpleNamespace(**locals())
    if runtime_freshness_guard is not None:
        runtime_freshness_guard.register_module_consumer("backtester", _parts, "backtester")


def _simulate_signal_export(expression: str, epoch: EpochName = EpochName.SIGNAL_OS) -> dict:
    """Backtest an expression such as "momentum(close)" on the vault's data of `epoch`, by default out of sample.

    Returns the backtester's entries, "expression", "useful" (whether the service lists it among the useful signals) and
    "found_pnl" (what the service says it earned, None for one it does not know). Raises RuntimeError before the
    bring-up or without a vocabulary, ValueError for an expression that the vocabulary does not allow.
    """
    from sablecrest import _runtime

    if _parts is None or _parts.vocabulary is None:
        raise RuntimeError("Simulating needs a runtime with a vocabulary.")
    _parts.runtime_freshness_guard.ensure_fresh()
    _, _, expression_type, evaluate = _runtime._import_batch_runtime()
    parsed = expression_type.parse(expression)
    _parts.graph_validator(parsed)

    files = _runtime._RuntimeManifestAdapter(
        feature_epoch=epoch.value, named_universe=_parts.vocabulary["named_universe"], era_config=_parts.era_config
    )
    registry = _runtime._build_function_registry(_parts.vocabulary_raw)
    signal = evaluate(parsed, registry, lambda feature: _parts.vault.read(files.feature_path(feature)))
    return {
        "expression": expression,
        **_parts.backtester.backtest(signal, files.price_path()),
        "useful": expression in _parts.useful_signal_metadata,
        "found_pnl": _parts.load_found_signal_pnl(expression),
    }
