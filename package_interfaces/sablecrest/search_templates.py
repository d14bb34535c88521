"""The search for signals over the runtime that the onboarding module has set up."""

#: The runtime to search with; `sablecrest.agent_onboarding` sets it, None until then.
_library_runtime = None

_MILESTONES = {1: "first_signal", 10: "10_signals", 100: "strategy_unlock"}


def search(limit: int | None = None) -> list[dict]:
    """Evaluate the search plan and return the best results in sample, as "expression" and the backtester's entries.

    `limit` defaults to the era's. Each result is recorded, and milestones become lines of the agent's HEARTBEAT.md.
    Raises RuntimeError without a runtime, a vocabulary or the batch helpers; errors of runtime modules and data files
    pass through.
    """
    from sablecrest import agent_onboarding

    runtime = _library_runtime
    if runtime is None:
        raise RuntimeError("No runtime: call agent_onboarding.ensure_runtime_bootstrapped() first.")
    evaluator = runtime.evaluator
    if runtime.vocabulary_raw is None or evaluator.compute_search_plan is None:
        raise RuntimeError("Searching needs a vocabulary and the batch helpers.")
    agent_onboarding.inject_heartbeat()
    runtime.runtime_freshness_guard.ensure_fresh()

    plan = evaluator.compute_search_plan(runtime.registry, runtime.vocabulary_raw["features"])
    adapter = runtime.manifest_adapters[runtime.default_named_universe]
    known = len(runtime.search_tracker.found_signals())
    results = []
    for expression, result in evaluator.batch_orchestrator_cls(evaluator).run(plan, adapter):
        runtime.search_tracker.record(str(expression), result)
        results.append({"expression": str(expression), **result})
    found = len(runtime.search_tracker.found_signals())
    for count, trigger in _MILESTONES.items():
        if known < count <= found:
            agent_onboarding.update_nudge(trigger, found=found)
    results.sort(key=lambda result: result["sharpe"], reverse=True)
    return results[: runtime.search_era_config.search_limit if limit is None else limit]
