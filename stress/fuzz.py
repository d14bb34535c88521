"""Gives the module what comes from outside, in every shape: saved cases and, for each way in, variants of them."""

import faulthandler
import json
import re
import urllib.request
from contextlib import suppress
from math import inf, nan
from pathlib import Path, PurePosixPath
from types import SimpleNamespace as namespace

import hypothesis
import hypothesis.strategies as st
from support.cases import Case, show_file
from support.cases import given as in_place

from stress.child import STUCK, in_child
from stress.operations import SHORT, differences, native, observe

CALLS = {
    "checklist": lambda m, triggers: [m.inject_heartbeat(), *map(m.update_nudge, triggers)],
    "eras": lambda m, token: m._resolve_active_named_universe(namespace(get_token=lambda: token)),
    "key": lambda m, key: (key is None or m._write_wallet_key("data", key), m._read_wallet_key("data")),
    "manifest": lambda m, given: list_and_select(m, m._read_manifest("data") if given is None else given),
    "options": lambda m, options: m.configure(**options),
    "settings": lambda m, _: (m._apply_file_settings(), m._configured_signal_service_url()),
}
#: A line is a case: the options before, the content of the file or of the answer, and what the call is given.
CORPUS = {name: Path(__file__).with_name("corpus").joinpath(f"{name}.txt").read_text("utf-8") for name in CALLS}
VARIANTS = 5000
OPTIONS = {"max_examples": VARIANTS, "deadline": None, "suppress_health_check": hypothesis.HealthCheck}
CASES = {name: re.findall("(?m)^[^#\n].*", text) for name, text in CORPUS.items()}


def outcome(call, m, given):
    try:
        return repr(call(m, given))
    except Exception as error:
        return repr(error)


def list_and_select(m, manifest):
    selected = [m._select_runtime_module_manifest_entry(manifest, name) for name in ("m", "era_data", "vault")]
    return [*m._runtime_module_manifest_entries(manifest)], selected


def state(m):
    return repr([m._config, *((path, show_file(path)) for path in Path().rglob("*"))])


def attempt(surface, case):
    """A second call changes nothing, a refusal is foreseen and leaves no trace, and all is as in plain Python."""
    faulthandler.dump_traceback_later(STUCK, exit=True)
    (options, content, given), call = eval(case), CALLS[surface]
    file, refusals = re.search("# File: (.*)\n# Refusals: (.*)", CORPUS[surface]).groups()

    def prepare(m, patch):
        m._config.update(options)
        m.load_settings = lambda path, ensure: given
        patch.setattr(urllib.request, "urlopen", lambda *_, **__: namespace(read=lambda: content))
        if content is not None:
            in_place({file: content})(m, patch)

    def call_twice(m):
        return state(m), (outcome(call, m, given), state(m)), (outcome(call, m, given), state(m))

    row = Case(surface, prepare, call_twice)
    seen = observe(row, native)
    before, (told, after), again = seen.returned
    assert again == (told, after), seen.returned
    if refusal := re.match(r"(\w+)\(", told):
        assert refusal[1] in refusals.split(), told
        assert before == after or surface not in ("eras", "manifest")  # the others go step by step
    assert not [*differences(seen, row)]


texts = st.sampled_from(["", " u ", ".", "a/b", "\\", "\0", "\ud800"]) | st.text(st.characters(), max_size=5)
texts |= st.sampled_from(re.findall(r"\w+", str(CORPUS)))
numbers = st.sampled_from([0, 7, 2**63, 10**400, nan, inf, -0.0]) | st.integers() | st.floats()
leaves = st.none() | st.booleans() | numbers | texts | st.just(PurePosixPath("p"))
values = st.recursive(leaves, lambda v: st.lists(v, max_size=4) | st.dictionaries(leaves, v, max_size=4), max_leaves=8)
splices = st.sampled_from([*map(str.encode, '[]{},:" 0\0\r\n'), b"", b"\xff", b"NaN", b"1e999", b"\\ud800"])


def altered(draw, value):
    """The value with a part replaced, or another one."""
    inside = draw(st.integers(0, 3))
    if isinstance(value, dict | list) and inside:
        items = value if isinstance(value, dict) else dict(enumerate(value))
        name = draw(st.sampled_from([*items]) if items and inside > 1 else texts)
        items = items | {name: altered(draw, items.get(name))}
        return items if isinstance(value, dict) else [*items.values()][draw(st.integers(0, 1)) :]
    if isinstance(value, bytes):
        with suppress(ValueError, RecursionError):
            if (document := json.loads(value)) and inside > 1:
                return json.dumps(altered(draw, document), skipkeys=True, default=repr).encode()
        n = draw(st.integers(0, min(len(value), 500)))
        return value[:n] + draw(splices) + value[n + draw(st.integers(0, 9)) :]
    return draw({str: texts, int: numbers}.get(type(value), values) if inside else values)


@st.composite
def variants(draw, surface):
    case = [*eval(draw(st.sampled_from(CASES[surface])))]
    for n in draw(st.lists(st.sampled_from([0, 2, 1] if case[1] else [0, 2]), min_size=1, max_size=5)):
        before, case[n] = case[n], altered(draw, case[n])
        hypothesis.assume(not isinstance(before, dict) or isinstance(case[n], dict))
    hypothesis.assume(not re.search(r"data_dir.*(['\"]/|~|\.\.)", repr(case)))  # It is made.
    return repr(case)


def explore(surface):
    """Tries the saved cases, and variants of them."""
    test = hypothesis.given(variants(surface))(lambda case: attempt(surface, case))
    for case in CASES[surface]:
        test = hypothesis.example(case)(test)
    hypothesis.settings(**OPTIONS, database=None, phases=[*hypothesis.Phase][: 1 if SHORT else None])(test)()


def main():
    found = [surface for surface in CALLS if in_child(explore, surface) is not None]
    print(f"{sum(map(len, CASES.values()))} cases, {0 if SHORT else VARIANTS} variants of each kind, findings: {found}")
    return found
