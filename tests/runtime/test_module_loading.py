"""Runtime modules: their copies, what is refused before any of it runs, and what a failure leaves registered."""

import hashlib
import json
import os
import sys
from importlib.machinery import ModuleSpec
from pathlib import Path
from types import SimpleNamespace

from sablecrest import errors
from support.cases import GONE, Case, call, checked, given, patched, raising, together
from support.platforms import needs_so

from runtime_modules.make_data_directory import BUILT_MODULES

INCOMPLETE, FAILED = errors.RuntimeModuleDownloadIncomplete, errors.RuntimeModuleReloadFailed
MISMATCH, DETAILS = errors.RuntimeModuleHashMismatch, "module_name relative_path expected_sha256 actual_sha256"
ABC = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"  # of the file's content, abc
COPY, STAMP = "data/.sablecrest-runtime-m-ba7816bf8f01cfea.so", "_sablecrest_module_sha256"
PRUNE, FIND, X = "_prune_runtime_extension_copies", "importlib.util.spec_from_file_location", {"expected_sha256": "x"}
ENTRY, STAMPED = {"kind": "runtime_module:m", "sha256": ABC}, SimpleNamespace(_sablecrest_module_sha256=ABC)
ALIAS, EXTENSION = "_ensure_legacy_src_namespace_alias", "_load_extension_from_path"
fails, stops, WRONG = raising(Exception, "wrong"), raising(KeyboardInterrupt), Exception("wrong")
data, no_link = given({"data/m.so": "abc"}), patched("os.link", raising(PermissionError))


def copy(m):
    path = m._content_addressed_extension_path("m", "data/m.so", ABC)
    return path, os.path.samefile(path, "data/m.so")


def pruned(name, ages, keep, gone, unlink=os.unlink, **expected):
    """A row: the copies' times of modification in the order of listing, the copy in use, and what goes."""

    def prepare(module, patch):
        given({f"data/{copy}": "x" for copy in ages})(module, patch)
        for copy, age in ages.items():
            os.utime(f"data/{copy}", (0, age))
        patch.setattr(os, "listdir", lambda folder: [VANISHED, *ages])
        patch.setattr(os, "unlink", unlink)

    prune = call(PRUNE, "m", f"data/{keep}")
    return Case(name, prepare, prune, files={f"data/{copy}": GONE for copy in gone}, **expected)


FOREIGN = dict.fromkeys((".sablecrest-runtime-mm-1.so", ".sablecrest-runtime-m-1.so.bak", "m-1.so"), 0)
A, B, C, D, VANISHED = (f".sablecrest-runtime-m-{letter}.so" for letter in "abcde")
DIGEST, MADE = "4a3f0c0c213adea174f9a3d4c13177315b588bdb2e9c1012d3d0bf0453ca0f6a", {"files": {COPY: "abc"}}
COPIES = [
    Case("MiBs are read", given({"f": b"a" * (2**20 + 1)}), lambda m: m._sha256_file("f"), DIGEST),
    Case("a copy is a hard link", data, copy, (f"HERE/{COPY}", True), **MADE),
    Case("or a copy", together(data, no_link), copy, (f"HERE/{COPY}", False), **MADE),
    Case("no copy", together(data, patched("os.link", fails)), copy, raises=WRONG),
    Case("a copy is trusted by its name", together(data, given({COPY: "other"})), copy, (f"HERE/{COPY}", False)),
    pruned("of equally old ones the first listed stays", FOREIGN | {C: 1, B: 1, A: 1, D: 1}, D, [A, B]),
    pruned("the newest other one stays", FOREIGN | {A: 3, B: 1, C: 2}, A, [B]),
    pruned("as many as allowed stay, whichever is in use", {A: 1, B: 2}, C, []),
    pruned("those that cannot be removed stay", {A: 1, B: 2, C: 3}, C, [], raising(OSError)),
    pruned("what else removing raises passes", {A: 1, B: 2, C: 3}, C, [], fails, raises=WRONG),
    Case("a folder that cannot be listed stays", given(), call(PRUNE, "m", "no folder/m", max_copies=0)),
]


# The interpreter that runtime modules are released for, or as if it were.
def release(module, patch):
    module.sys = SimpleNamespace(version_info=(3, 12, 0, "final", 0), modules=sys.modules, path=sys.path)


def load(m, name="m", **options):
    return m._load_manifest_runtime_module("data", name, **options)


def listed(entry=(), content="abc", **names):
    """A data directory with a file m.so, and its entry with these changes."""
    files = {"data/manifest.json": json.dumps({"files": {"m.so": ENTRY | dict(entry)}})}
    files |= {"data/m.so": content} if content else {}
    return together(release, given(files, **{ALIAS: lambda: None, EXTENSION: lambda *_: STAMPED} | names))


def refused(title, prepare, error, text, *known, cause=None, **options):
    text = text if text[0].isupper() else f"Runtime module 'm' {text}"
    refusal = error(text, **dict(zip(DETAILS.split(), ("m", *known))))
    return Case(title, prepare, lambda m: load(m, **options), None, refusal, cause, cause)


def extension(execute, previous=None, **names):
    """A file m.so and its copy, what executes it, and what is registered under its name."""

    def prepare(module, patch):
        loader = SimpleNamespace(create_module=lambda spec: None, exec_module=execute) if execute else None
        find = lambda name, path: None if execute is None else ModuleSpec(name, loader, origin=path)  # noqa: E731
        together(given({"data/m.so": "abc", COPY: "abc"}, **names), patched(FIND, find))(module, patch)
        if previous is not None:
            patch.setitem(sys.modules, "m", SimpleNamespace(**{"__file__": os.path.realpath(COPY)} | previous))

    return prepare


def load_extension(m):
    previous, loaded = sys.modules.get("m"), m._load_extension_from_path("m", "data/m.so")
    origin = loaded is not previous and (loaded.__spec__.origin, loaded._sablecrest_module_source_path)
    return sys.modules["m"] is loaded, loaded._sablecrest_module_sha256 == ABC, origin


def look(module):
    assert (sys.modules["m"] is module, hasattr(module, STAMP)) == (True, False)


def marking(module, patch):
    entry = {"kind": "runtime_module:marking", "sha256": hashlib.sha256(MARKING).hexdigest()}
    manifest = json.dumps({"files": {"marking.so": entry}})
    given({"data/manifest.json": manifest, "data/marking.so": MARKING}, **{ALIAS: lambda: None})(module, patch)
    patch.setenv("SABLECREST_MARK", "mark")
    release(module, patch)


OLD = "SableCrest release runtime modules require CPython 3.12; running CPython {}.{}.{}. "
OLD += "Recreate the environment with python3.12 before running sablecrest start."
UNLISTED = "Manifest does not contain a runtime module for 'm'."
UNLIKE = "hash mismatch at m.so: expected {}, got " + ABC + "."
CONTRACT = "at m.so breaks its contract: its size is not the size that the manifest states."
NO_SPEC, NEW = RuntimeError(f"Could not create import spec for HERE/{COPY}"), (f"HERE/{COPY}", "HERE/data/m.so")
#: Code, the exception, and what of `sys.modules` is another one afterwards.
ENDS = [(None, NO_SPEC, []), (False, NO_SPEC, []), (fails, WRONG, []), (look, WRONG, [])]
ENDS += [(lambda module: sys.modules.update(m=1), WRONG, ["m"]), (stops, KeyboardInterrupt, ["m"])]
MARKING = next(file for file in BUILT_MODULES.glob("marking.*") if file.suffix in (".so", ".pyd")).read_bytes()
MARKING_COPY = f"data/.sablecrest-runtime-marking-{hashlib.sha256(MARKING).hexdigest()[:16]}.so"
UNSIGNED, FILE = ENTRY | {"sha256": None}, os.path.join("data", "m.so")
NAMED = {"a/d": "d", "b/d": "d", "c": "n", "z": "era_data"}
LISTED = {"files": {path: {"kind": f"runtime_module:{name}", "sha256": path} for path, name in NAMED.items()}}
EACH = "_load_manifest_runtime_module('data', '%s', expected_sha256='%s', manifest=" + f"{LISTED})"
LOADED = [
    Case("all of a manifest, the data first", given(_load_manifest_runtime_module=lambda data_dir, name, **_: name),
         call("_load_runtime_modules_from_manifest", "data", LISTED), {name: name for name in NAMED.values()},
         calls="...  " + "  ".join(EACH % call for call in (("era_data", "z"), ("d", "a/d"), ("n", "c")))),
    *(refused(f"with {version}", given(sys=SimpleNamespace(version_info=(*version, "final", 0)), resolve_data_dir=None),
              FAILED, OLD.format(*version), None, "x", **X) for version in ((3, 13, 1), (3, 11, 9), (4, 12, 0))),
    refused("of another name", listed({"kind": "runtime_module:n"}), INCOMPLETE, UNLISTED, None),
    refused("not in what is given", listed(), INCOMPLETE, UNLISTED, None, "x", manifest={}, **X),
    refused("gone", listed(content=""), INCOMPLETE, "is missing at HERE/data/m.so.", "m.so", ABC, expected_sha256=""),
    refused("unlike", listed({"sha256": ABC[:16]}), MISMATCH, UNLIKE.format(ABC[:16]), "m.so", ABC[:16], ABC),
    refused("unlike the one given", listed({"size": 1}), MISMATCH, UNLIKE.format("x"), "m.so", "x", ABC, **X),
    refused("of another size", listed({"size": 1}, **{ALIAS: None}), FAILED, CONTRACT, "m.so", ABC),
    *(refused(f"wrong {step}", listed(**{step: fails}), FAILED, "failed to load from m.so: wrong", "m.so", ABC, ABC,
              cause=WRONG) for step in (ALIAS, EXTENSION)),
    *(refused(f"stamped {stamp}", listed(**{EXTENSION: lambda *_, stamp=stamp: SimpleNamespace(**stamp)}), MISMATCH,
              "loaded with unexpected hash.", "m.so", ABC, *stamp.values()) for stamp in ({}, {STAMP: "other"})),
    Case("interrupted", listed(**{EXTENSION: stops}), load, raises=KeyboardInterrupt),
    Case("without a digest", listed({"sha256": None}, resolve_data_dir=lambda it, ensure: {False: Path(it)}[ensure]),
         lambda m: (load(m), load(m), sys.path[0], sys.path.count(sys.path[0])), (STAMPED, STAMPED, "HERE/data", 1),
         calls=f"""...  validate_synced_runtime_module_contract(module_name='m', relative_path='m.so', \
file_info={UNSIGNED}, local_path={FILE!r})  {ALIAS}()  {EXTENSION}('m', {FILE!r})"""),
    Case("by a guard", given(_load_manifest_runtime_module=lambda *args, **named: (args, named)),
         lambda m: m.create_runtime_freshness_guard("a")._module_loader("m", "x"), (("a", "m"), X)),
    Case("the one in use", extension(None, {STAMP: ABC}, **{PRUNE: None}), load_extension, (True, True, False)),
    *(Case(f"instead of {old}", extension(look, old), load_extension, (True, True, NEW), modules=["m"])
      for old in (None, {}, {STAMP: ABC, "__file__": "x"}, {STAMP: ABC.upper()})),
    *(Case(f"end {n} with {old}", extension(code, old, **{PRUNE: fails}), load_extension, raises=error, modules=changed)
      for n, (code, error, changed) in enumerate(ENDS) for old in (None, {})),
    Case("a damaged one is neither copied nor run", together(marking, given({"data/marking.so": MARKING[:-1] + b"?"})),
         lambda m: load(m, "marking"), raises=MISMATCH),
    Case("a compiled one runs once", marking, lambda m: load(m, "marking") is load(m, "marking"), True,
         files={"mark": "", MARKING_COPY: MARKING}, modules=["marking"], needs=(needs_so,)),
]  # fmt: skip


test_module_is_copied_and_loaded_or_refused_and_what_was_registered_is_put_back = checked(COPIES + LOADED)
