"""Named universes: which names are safe, and which an era allows, in order."""

from functools import partial
from itertools import product
from time import thread_time
from timeit import repeat

import pytest
from differential import Scenario, agree, native, plain


class Text(str):
    """A name with a text, and a way to strip it, of its own."""

    def __str__(self):
        return self

    def strip(self):
        return Text(str.strip(self) + "!" * len(self) or 1 // 0)


TEXTS = [Text("t "), Text("t"), Text(" "), Text()]
NAMES = ["a", " b\u3000", "", " .", "..", "a/b", "a\\b", "a\0", None, 5, True, ("a", "b"), {}, *TEXTS]
LISTS = [NAMES, [*NAMES[:-1], "a", 5], ("a", "b"), "a", TEXTS[0], None, 5, [["a"]], {"a"}]
POOLS = [*([{"allowed_named_universes": names}, None, {}] for names in LISTS), None, {}, [[]]]
UNIVERSES = [*LISTS, {"z": 1, "m": 2}, {"z": 1, 5: 2}, [{"named_universe": "", "id": 0, "name": "n"}, {"id": "i"}, {}]]
KEYS = ["allowed_named_universes", "signal_pools", "universes", "named_universe"]
ERAS = [dict(zip(KEYS, values)) for values in product(LISTS[:3], POOLS, UNIVERSES, ("u", None))] + [{}, None, []]
CHOICES = ["_active_era_named_universe_candidates", "_first_allowed_named_universe_from_era_config"]
SCENARIOS = [Scenario(name, lambda *_: 0, lambda m, name=name: getattr(m, name)(ERAS[-50])) for name in CHOICES]


def outcome(function, *arguments):
    try:
        return repr(function(*arguments))
    except Exception as error:
        return repr(error)


def test_calls_and_failures_are_those_of_plain_python(scenario, directory):
    agree(scenario, directory)


@pytest.mark.parametrize("choice", CHOICES)
def test_choices_are_those_of_plain_python(choice):
    for era in ERAS:
        assert outcome(getattr(native, choice), era) == outcome(getattr(plain, choice), era)


def choose(names):
    native._active_era_named_universe_candidates({"universes": names})


def enumerate_entries(names):
    list(
        native._runtime_module_manifest_entries({"files": {name: {"kind": f"runtime_module:{name}"} for name in names}})
    )


@pytest.mark.parametrize("call", [choose, enumerate_entries])
def test_time_is_linear_in_the_number(call):
    names = [f"universe_{i}" for i in range(40_000)]
    few, many = (min(repeat(partial(call, names[:n]), timer=thread_time, number=1)) for n in (10_000, 40_000))
    assert many < 12 * few
