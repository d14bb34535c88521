"""The manifest: what of it is read, which runtime modules it lists, and other files that may be absent."""

import json
from contextlib import suppress
from types import SimpleNamespace

from differential import Scenario, agree, compare, write
from interpreter import scenario
from sablecrest.sync import CURRENT_PLATFORM

MODULE = {"kind": "runtime_module:m"}
TWO = {"b/x": MODULE, "a/y": MODULE}
FILES = TWO | {str(place): MODULE | {"platform": place} for place in ("", None, CURRENT_PLATFORM, "other", ["odd"])}
FILES |= {path: {"kind": "runtime_module"} for path in ("z/named.so", "1.so", "vault.so", "w/era_data.so", "../m.so")}
FILES |= dict(zip("cdefgh", ({"kind": 5}, {"kind": None}, {"kind": "feature"}, {}, "text", ["list"])))
MANIFESTS = ["", "{", "[]", "null", "5", "{}", "\udcff", "[" * 100_000, '{"files": null}', '{"files": [{}]}', None]
MANIFESTS += [json.dumps({"era_number": "x", "version": [1], "files": FILES})]
OBJECTS = [None, 5, {}, {"files": [1]}, SimpleNamespace(files=FILES), SimpleNamespace(), {"files": TWO | {5: MODULE}}]


def read(m):
    manifest = m._read_manifest("data")
    return manifest, [m._select_runtime_module_manifest_entry(manifest, name) for name in ("era_data", "vault", "x")]


def steps(m):
    """What happens before the record happens too early; an exception exhausts."""
    entries, results = m._runtime_module_manifest_entries({"files": TWO}), []
    m.logger.info("nothing was read")
    for _ in range(4):
        try:
            results.append(next(entries, "end"))
        except Exception as error:
            results.append(error)
    return iter(entries) is entries, results


def nested(m):
    """An iterator that is asked for the next entry while it finds one."""
    entries = m._runtime_module_manifest_entries({"files": TWO})

    def is_kind(kind):
        with suppress(ValueError):
            m.logger.info("nested", next(entries))
        return True

    m.is_runtime_module_kind = is_kind
    return [*entries]


def others(m):
    payload = m._read_manifest_payload_with_signals_index("data") | {"list": []}
    sections = [m._manifest_payload_mapping_or_empty(payload, name) for name in ("signals_index", "list", "none")]
    found = [m._read_json_if_present(path) for path in ("", None, "nothing", "data/signals_index.json")]
    paths = [m._local_vocabulary_path("data", name) for name in ("", None, "u", "v")]
    return sections, sections[0] is payload["signals_index"], found, paths


def holding(manifest="{}"):
    files = {"manifest": manifest, "signals_index": '{"a": 1}', "features/u/vocabulary": "{}"}
    return lambda *_: [write(f"data/{path}.json", text) for path, text in files.items() if text is not None]


SCENARIOS = [Scenario("steps", holding(), steps), scenario("others", holding(), others)]
SCENARIOS += [Scenario("nested", holding(), nested)]
SCENARIOS += [scenario("whole", holding(json.dumps({"files": TWO})), read)]
SCENARIOS += [Scenario("stop", lambda m, _: setattr(m, "is_runtime_module_kind", lambda k: next(iter(()))), steps)]


def test_manifest_is_read_as_in_plain_python(scenario, directory):
    agree(scenario, directory)


def test_bad_manifests_come_to_the_same_as_in_plain_python(directory):
    for text in MANIFESTS:
        compare(text, Scenario("text", holding(text), read), directory)
    for o in OBJECTS:
        compare(o, Scenario("object", holding(), lambda m, o=o: [*m._runtime_module_manifest_entries(o)]), directory)
