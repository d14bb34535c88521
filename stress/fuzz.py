"""Gives the module what comes from outside, in every shape: saved cases and, for so many minutes, variants of them."""

import json
import random
import re
import sys
import tempfile
import time
import urllib.request
from collections import Counter, namedtuple
from contextlib import suppress
from functools import partial
from itertools import chain
from math import inf, nan
from pathlib import Path, PurePosixPath
from types import SimpleNamespace as namespace

import hypothesis
import hypothesis.strategies as st
from differential import Recorder, Scenario, compare, show_file, write
from test_named_universes import Text, outcome  # noqa: F401

from stress.child import in_child

#: A case is the options before, the content of the surface's file, and what its function is given.
CORPUS = {
    path.stem: re.findall("(?m)^[^#\n].*", path.read_text("utf-8")) for path in Path(__file__).parent.glob("corpus/*")
}
Recorder.install = lambda *_: None  # Functions call each other straight.


def read_manifest(m, given):
    manifest = m._read_manifest("data") if given is None else given
    selected = [m._select_runtime_module_manifest_entry(manifest, name) for name in ("m", "era_data", "vault")]
    return [*m._runtime_module_manifest_entries(manifest)], selected


#: The file, the function, which exceptions are foreseen, and whether these leave what was done before them.
JSON = "JSONDecodeError UnicodeDecodeError RecursionError ValueError AttributeError TypeError "
OTHERS = "UnicodeEncodeError FileExistsError NotADirectoryError OSError OverflowError KeyError"
KEY = "data/wallet.key"
SURFACES = {
    "checklist": (
        "HEARTBEAT.md",
        lambda m, given: [m.inject_heartbeat(), *map(m.update_nudge, given)],
        "TypeError",
        True,
    ),
    "eras": (
        "body",
        lambda m, token: m._resolve_active_named_universe(namespace(get_token=lambda: token)),
        JSON + "RuntimeError OverflowError",
        False,
    ),
    "key": (
        KEY,
        lambda m, key: (key and m._write_wallet_key("data", key), m._read_wallet_key("data")),
        JSON + OTHERS,
        True,
    ),
    "manifest": ("data/manifest.json", read_manifest, JSON + "RuntimeModuleDownloadIncomplete", False),
    "options": ("data/rotation_settings.json", lambda m, given: m.configure(**given), JSON + OTHERS, True),
    "settings": ("unused", lambda m, _: (m._apply_file_settings(), m._configured_signal_service_url()), OTHERS, True),
}


def state(m):
    return repr([m._config, *((path, show_file(path)) for path in Path().rglob("*"))])


def attempt(surface, text, directory):
    """Both modules come to the same, a second call changes nothing, and a refusal is foreseen."""
    (options, content, given), (file, function, foreseen, is_stepwise) = eval(text), SURFACES[surface]

    def prepare(m, patch):
        m._config.update(options)
        m.load_settings = lambda path, ensure: given
        patch.setattr(urllib.request, "urlopen", lambda *_, **__: namespace(read=lambda: content))
        write(file)
        Path(file).unlink() if content is None else Path(file).write_bytes(content)

    def call(m):
        before, said, after = state(m), outcome(function, m, given), state(m)
        checks.append((outcome(function, m, given), state(m)) == (said, after))
        if refusal := re.match(r"\w+(?=\()", said):
            checks.append(refusal[0] in f"ZeroDivisionError {foreseen}".split() and (is_stepwise or after == before))
        return said, after, function(m, given)

    checks = []
    compare("outcome", Scenario(surface, prepare, call), directory)
    assert all(checks), checks


texts = st.sampled_from(["", " u ", ".", "a/b", "\\", "\0", "\ud800"]) | st.text(st.characters(), max_size=5)
#: Written as such texts are, which would confuse hypothesis itself.
texts |= st.builds(namedtuple("Text", "object"), texts) | st.sampled_from(re.findall(r"\w+", str(CORPUS)))
numbers = st.sampled_from([0, 7, 2**63, 10**400, nan, inf, -0.0]) | st.integers() | st.floats()
leaves = st.none() | st.booleans() | numbers | texts | st.just(PurePosixPath("p"))
values = st.recursive(leaves, lambda v: st.lists(v, max_size=4) | st.dictionaries(leaves, v, max_size=4), max_leaves=8)
LIKE = {str: texts, int: numbers, float: numbers}
splices = st.sampled_from([b"", *(bytes([byte]) for byte in b'[]{},:" 0\0\r\n\xff'), b"NaN", b"1e999", b"\\ud800"])


def altered(draw, value, whole=False):
    """The value with a part replaced, or another one unless it is the whole."""
    inside = draw(st.integers(0, 3)) or whole
    if isinstance(value, dict) and inside:
        name = draw(st.sampled_from([*value]) if value and draw(st.integers(0, 3)) else texts)
        return value | {name: altered(draw, value.get(name))}
    if isinstance(value, list) and inside:
        n = draw(st.integers(0, len(value)))
        return [*value[:n], altered(draw, (value[n:] or [None])[0]), *value[n + draw(st.integers(0, 1)) :]]
    if isinstance(value, bytes):
        with suppress(ValueError, RecursionError):
            if (document := json.loads(value)) and inside > 1:
                return json.dumps(altered(draw, document), skipkeys=True, default=repr).encode()
        n = draw(st.integers(0, min(len(value), 500)))
        return value[:n] + draw(splices) + value[n + draw(st.integers(0, 9)) :]
    return draw(LIKE[type(value)] if type(value) in LIKE and inside else values)


@st.composite
def variants(draw, surface):
    case = [*eval(draw(st.sampled_from(CORPUS[surface])))]
    for n in draw(st.lists(st.sampled_from([0, 2, 1] if case[1] else [0, 2]), min_size=1, max_size=5)):
        case[n] = altered(draw, case[n], whole=True)
    hypothesis.assume(not re.search(r"data_dir.*(['\"]/|~|\.\.)", repr(case)))  # It is made.
    return repr(case)


def go_round(surface, directory, number):
    """How many cases there were, and the finding: the saved cases in round 0, variants of them in all others."""

    @hypothesis.settings(max_examples=300, database=None, deadline=None, suppress_health_check=hypothesis.HealthCheck)
    @hypothesis.seed(number)
    @hypothesis.given(variants(surface))
    def explore(text):
        tried.append(text)
        attempt(surface, text, directory)

    tried = []
    try:
        explore() if number else [explore.hypothesis.inner_test(text) for text in CORPUS[surface]]
    except Exception as error:
        return len(tried), f"{tried[-1:]}: {error!r}"
    return len(tried), ""


def main(minutes):
    tried, findings, end = Counter(), 0, time.monotonic() + 60 * minutes
    with tempfile.TemporaryDirectory(dir="/dev/shm") as parent:
        for number in chain([0], iter(partial(random.getrandbits, 32), None)):
            for surface in SURFACES:
                answer = in_child(partial(go_round, surface, Path(parent, "stage"), number))
                count, finding = (1, answer) if isinstance(answer, str) else answer
                tried[surface] += count
                if finding:
                    findings += 1
                    print(f"{surface} in round {number}: {finding}", flush=True)
            if time.monotonic() > end:
                break
    print(dict(tried))
    print(f"{tried.total()} cases, {findings} findings")
    sys.exit(findings > 0)


if __name__ == "__main__":
    main(0 if "--short" in sys.argv else float([*sys.argv, 10][1]))
