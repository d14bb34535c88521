"""The backtester that ships with the package; an era's own `backtester` module has the same `backtest`."""

import statistics

from sablecrest.simulator_engine import vault


def backtest(signal: list[float], price_path: str) -> dict:
    """Trade the sign of `signal` on the vault's prices: each step's position earns the next change of the price.

    Returns "pnl" (the sum), "sharpe" (mean over deviation of the steps, 0.0 without deviation) and "steps" (how many).
    Raises ValueError when signal and prices differ in length or hold fewer than two values.
    """
    if vault is None:
        raise RuntimeError("The backtester was imported before its vault was prepared.")
    prices = vault.read(price_path)
    if len(signal) != len(prices) or len(prices) < 2:
        raise ValueError(f"Cannot trade a signal of {len(signal)} values on {len(prices)} prices.")
    changes = [after - before for before, after in zip(prices, prices[1:])]
    earned = [((value > 0) - (value < 0)) * change for value, change in zip(signal, changes)]
    deviation = statistics.pstdev(earned)
    sharpe = statistics.fmean(earned) / deviation if deviation else 0.0
    return {"pnl": sum(earned), "sharpe": sharpe, "steps": len(earned)}
