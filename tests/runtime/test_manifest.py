"""The manifest: what of it is read, and which runtime modules it lists; and other JSON files beside it."""

from pathlib import Path
from types import ModuleType, SimpleNamespace

import pytest
from sablecrest.errors import RuntimeModuleDownloadIncomplete as Incomplete
from sablecrest.sync import CURRENT_PLATFORM
from support.cases import Case, call, checked, given, raising

PATH, END, M, UNNAMED = "data/manifest.json", "the end", {"kind": "runtime_module:m"}, {"kind": "runtime_module"}
MISSING = Incomplete(f"Runtime manifest is missing at {Path(PATH)}.", relative_path="manifest.json")
SECTIONS = '{"files": {"a": {"b": 1}}, "version": [1.5], "c": 1, "era_number": "\u00e9"}'
read, read_json = call("_read_manifest", "data"), call("_read_json_if_present", PATH)
#: The entries, of which those for other platforms and kinds are left out.
PLATFORMS = {"b": M, "a": M | {"platform": CURRENT_PLATFORM}, "Z": M | {"platform": ""}, "A": M | {"platform": "other"}}
KINDS = dict(zip("cdefgh", ({"kind": 5}, {"kind": None}, {"kind": "feature"}, {}, "text", [M])))
FILES = PLATFORMS | KINDS | {"n/vault.so": UNNAMED, "o/era_data.so": UNNAMED}
LISTED = [("m", "Z"), ("m", "a"), ("m", "b"), ("vault", "n/vault.so"), ("era_data", "o/era_data.so")]
#: For a name, the first entry of it; "vault" is another name of "era_data", and of nothing else.
SELECTED = {"m": "Z", "era_data": "n/vault.so", "vault": "n/vault.so", "n": None}


NAMED = {"SECTION".lower(): "m", type("Name", (str,), {})("manifest_payload"): {"m": M}}


# A module whose class has something else under the name.
def shadowed(files):
    vars(manifest := type("Shadowed", (ModuleType,), {"files": property(files)})("m"))["files"] = {"its": "own"}
    return manifest


def select(files, *names):
    return lambda m: [m._select_runtime_module_manifest_entry({"files": files}, name)[0] for name in names]


ROWS = [
    Case("nothing", given({PATH: "{}"}), read, SimpleNamespace(era_number=None, version=None, files={})),
    Case("whole", given({PATH: SECTIONS}), read, SimpleNamespace(era_number="é", version=[1.5], files={"a": {"b": 1}})),
    Case("missing", given(), read, raises=MISSING),
    *(Case(f"no file {path}", given(), call("_read_json_if_present", path)) for path in (PATH, "", None)),
    Case("any JSON", given({PATH: '"\u00e9"'}), read_json, "\u00e9"),
    *(Case(f"bad: {call}", given({PATH: b'{"\xff'}), call, raises=UnicodeDecodeError) for call in (read, read_json)),
    *(Case(f"no files in {manifest}", given(), call("_manifest_files", manifest), {})
      for manifest in (None, {}, {"files": [1, 2]}, SimpleNamespace(files=None), 5)),
    Case("no attribute", given(), call("_manifest_files", shadowed(raising(AttributeError))), {}),
    Case("arguments by the texts of their names", given(), lambda m: m._manifest_payload_mapping_or_empty(**NAMED), M),
    Case("by path", given(), lambda m: [e[:2] for e in m._runtime_module_manifest_entries({"files": FILES})], LISTED),
    Case("selected by name", given(), select(FILES, *SELECTED), [*SELECTED.values()]),
    Case("no vault", given(), select({"o/era_data.so": UNNAMED}, "vault"), [None]),
]  # fmt: skip
test_manifest_is_read_as_it_is_and_lists_its_modules_for_this_platform = checked(ROWS)


def test_files_are_handed_out_as_they_are_and_sections_as_copies(module):
    files = {"k": {}}
    assert module._manifest_files({"files": files}) is module._manifest_files(SimpleNamespace(files=files)) is files
    section, *others = (module._manifest_payload_mapping_or_empty({"a": files, "b": []}, name) for name in "abc")
    assert (section, section is files, others) == (files, False, [{}, {}])


def test_entries_are_looked_at_when_they_are_asked_for(module):
    manifest = SimpleNamespace(files=None)
    entries, thrown, closed = (module._runtime_module_manifest_entries(manifest) for _ in range(3))
    manifest.files = {"b": M, "a": M}
    assert [next(entry)[1] for entry in (entries, thrown, closed)] == ["a"] * 3
    assert (entries.send(2), next(entries, END), closed.close(), next(closed, END)) == (("m", "b", M), END, None, END)
    with pytest.raises(KeyError, match="thrown"):
        thrown.throw(KeyError("thrown"))
    assert next(thrown, END) is END
