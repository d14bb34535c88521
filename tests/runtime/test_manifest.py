"""The manifest: what of it is read, and which runtime modules it lists; and other JSON files beside it."""

from operator import methodcaller
from pathlib import Path
from types import SimpleNamespace

import pytest
from sablecrest.errors import RuntimeModuleDownloadIncomplete
from sablecrest.sync import CURRENT_PLATFORM
from support.cases import Case, checked, given

PATH, END, M = "data/manifest.json", "the end", {"kind": "runtime_module:m"}
MISSING = RuntimeModuleDownloadIncomplete(
    f"Runtime manifest is missing at {Path(PATH)}.", relative_path="manifest.json"
)
SECTIONS = '{"files": {"a": {"b": 1}}, "version": [1.5], "c": 1, "era_number": "\u00e9"}'
read, read_json = methodcaller("_read_manifest", "data"), methodcaller("_read_json_if_present", PATH)
ROWS = [
    Case("nothing", given({PATH: "{}"}), read, SimpleNamespace(era_number=None, version=None, files={})),
    Case("whole", given({PATH: SECTIONS}), read,
         SimpleNamespace(era_number="\u00e9", version=[1.5], files={"a": {"b": 1}})),
    Case("missing", given(), read, raises=MISSING),
    *(Case(f"no file {path}", given(), methodcaller("_read_json_if_present", path)) for path in (PATH, "", None)),
    Case("any JSON", given({PATH: '"\u00e9"'}), read_json, "\u00e9"),
    *(Case(f"bad: {call}", given({PATH: b'{"\xff'}), call, raises=UnicodeDecodeError) for call in (read, read_json)),
]  # fmt: skip


test_files_are_read_as_they_are = checked(ROWS)


def test_files_are_handed_out_as_they_are_and_sections_as_copies(module):
    files = {"k": {}}
    assert module._manifest_files({"files": files}) is module._manifest_files(SimpleNamespace(files=files)) is files
    for manifest in (None, {}, {"files": [1, 2]}, SimpleNamespace(files=None), 5):
        assert module._manifest_files(manifest) == {}
    section, *others = (module._manifest_payload_mapping_or_empty({"a": files, "b": []}, name) for name in "abc")
    assert (section, section is files, others) == (files, False, [{}, {}])


def test_entries_are_the_runtime_modules_for_this_platform_sorted_by_path(module):
    platforms = {"b": {}, "a": {"platform": CURRENT_PLATFORM}, "Z": {"platform": ""}, "A": {"platform": "other"}}
    files = {path: M | platform for path, platform in platforms.items()}
    files |= dict(zip("cdefgh", ({"kind": 5}, {"kind": None}, {"kind": "feature"}, {}, "text", [M])))
    files |= {"n/vault.so": {"kind": "runtime_module"}, "b/1.so": {"kind": "runtime_module"}}
    entries = [entry[:2] for entry in module._runtime_module_manifest_entries({"files": files})]
    assert entries == [("m", "Z"), ("m", "a"), ("m", "b"), ("vault", "n/vault.so")]


def test_entries_are_looked_at_when_they_are_asked_for(module):
    manifest = SimpleNamespace(files=None)
    entries, thrown, closed = (module._runtime_module_manifest_entries(manifest) for _ in range(3))
    with pytest.raises(TypeError, match="non-None value to a just-started generator"):
        entries.send(1)
    manifest.files = {"b": M, "a": M}
    assert [next(entry)[1] for entry in (entries, thrown, closed)] == ["a"] * 3
    assert (entries.send(2), next(entries, END), closed.close(), next(closed, END)) == (("m", "b", M), END, None, END)
    with pytest.raises(KeyError, match="thrown"):
        thrown.throw(KeyError("thrown"))
    assert next(thrown, END) is END


def test_first_entry_of_a_name_is_selected_and_vault_is_a_name_of_era_data(module):
    vault, data = ({path: {"kind": "runtime_module"}} for path in ("c/vault.so", "d/era_data.so"))
    rows = [("m", {"b": M, "a": M}, "a"), ("era_data", data | vault, "c/vault.so"), ("vault", data, None)]
    for name, files, path in rows:
        assert module._select_runtime_module_manifest_entry({"files": files}, name) == (path, files.get(path))
