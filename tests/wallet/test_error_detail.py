"""The one-line description of an exception and its causes."""

from types import SimpleNamespace

from differential import Scenario, agree


def chained(*links):
    for link, cause in zip(links, links[1:]):
        link.__cause__ = cause
    return links[0]


first = ValueError("a")
first.__context__ = KeyError("not explicit")
CASES = {
    "none": None,
    "six": chained(*map(ValueError, range(6))),
    "equal": chained(*(ValueError(i < 5) for i in range(6))),
    "cycle": chained(first, RuntimeError(" "), first),
    "diagnosed": chained(*(SimpleNamespace(diagnostic_detail=detail) for detail in (["x"], 0, " y "))),
    "unprintable": chained(ValueError(), type("Unprintable", (Exception,), {"__str__": lambda self: 1 / 0})()),
}
SCENARIOS = [
    Scenario(name, lambda *_: 0, lambda m, error=error: m._exception_chain_detail(error))
    for name, error in CASES.items()
]


def test_chain_is_described_as_in_plain_python(scenario, directory):
    agree(scenario, directory)
