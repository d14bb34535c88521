"""Expressions such as "momentum(close)", what they compute, and the evaluation of many of them."""

import re
from collections.abc import Callable
from dataclasses import dataclass
from itertools import accumulate


def _momentum(series: list[float]) -> list[float]:
    return [after - before for before, after in zip(series[:1] + series, series)]


def _reversal(series: list[float]) -> list[float]:
    return [-change for change in _momentum(series)]


def _deviation(series: list[float]) -> list[float]:
    sums = enumerate(accumulate(series), start=1)
    return [value - total / count for value, (count, total) in zip(series, sums)]


FUNCTIONS = {"momentum": _momentum, "reversal": _reversal, "deviation": _deviation}


@dataclass(frozen=True)
class Expression:
    """One function of one feature."""

    function: str
    feature: str

    @classmethod
    def parse(cls, text: str) -> "Expression":
        """The expression that `str` shows as `text`; ValueError for any other text."""
        parts = re.fullmatch(r"(\w+)\((\w+)\)", text)
        if not parts:
            raise ValueError(f"Not an expression: {text!r}")
        return cls(*parts.groups())

    def __str__(self) -> str:
        return f"{self.function}({self.feature})"


def evaluate_expression(
    expression: Expression, registry: dict[str, Callable], read_feature: Callable[[str], list[float]]
) -> list[float]:
    """The signal: the registry's function over what `read_feature` gives; KeyError for an unknown function."""
    return registry[expression.function](read_feature(expression.feature))


def compute_search_plan(registry: dict[str, Callable], features: list[str]) -> list[Expression]:
    """Every function of every feature, in the order of both."""
    return [Expression(function, feature) for function in registry for feature in features]


class BatchOrchestrator:
    """Evaluates the expressions of a plan one after the other."""

    def __init__(self, evaluator):
        self._evaluator = evaluator

    def run(self, plan: list[Expression], manifest_adapter) -> list[tuple[Expression, dict]]:
        """Each expression with its backtest result; the first error ends the run."""
        return [(expression, self._evaluator.evaluate(expression, manifest_adapter)) for expression in plan]
