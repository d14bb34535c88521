"""Times every operation beside the same algorithm in plain Python, in one run, and fails where a ratio is missed.

Run by `make bench`, with the built package on the path. A row's ratio is the median of native time over plain time of
rounds that alternate between the two; its spread is that of the middle half of the rounds.
"""

import argparse
import contextlib
import hashlib
import json
import os
import statistics
import subprocess
import sys
import tempfile
import time
import timeit
from collections import namedtuple
from pathlib import Path
from types import ModuleType

HERE = Path(__file__).parent
HASHED_BYTES = 256 * 2**20

# The limit where nearly all of the time is the interpreter's or the package's own.
PARITY = 1.05
# M is the module, `floor` a statement that does only what the operation cannot do without.
Row = namedtuple("Row", "statement limit floor", defaults=(1.0, None))

COMPUTING = [
    Row("M.configure()"),
    Row("M.configure(market_id=7)", 0.4),
    Row("M.configure(named_universe='majors', auto_heartbeat=True)", 0.6),
    Row("M._safe_named_universe('majors')", 0.6),
    Row("M._safe_named_universe(' majors ')", 0.6),
    Row("M._safe_named_universe(None)"),
    Row("M._normalize_key(key)", 0.7, "len(key)"),
    Row("M._normalize_key('0x' + key)"),
    Row("M._expected_type_name((int, float))"),
    Row("M._exception_chain_detail(error)"),
    Row("M._configured_signal_service_url()"),
    Row("M.update_nudge('unknown')"),
    Row("M._unsafe_wallet_error('/wallet.key')"),
    Row("M._legacy_src_module_name('src', 'obfuscation', 'layers')"),
    Row("M._ensure_package_module('json')"),
    Row("M._ensure_legacy_src_obfuscation_core_alias(src)"),
    Row("M.era_salt(1, 2)"),
    Row("M._module_not_found_is_candidate(missing, 'sablecrest.simulator_engine')"),
    Row("M._append_unique_named_universe([], 'majors')"),
    Row("M._append_allowed_named_universes([], ['majors', 'minors', 'majors'])"),
    Row("M._active_era_named_universe_candidates(small_era)"),
    Row("M._active_era_named_universe_candidates(large_era)", 0.5),
    Row("M._first_allowed_named_universe_from_era_config(small_era)"),
    Row("M._manifest_files(small_manifest)"),
    Row("M._manifest_payload_mapping_or_empty(small_manifest, 'files')"),
    Row("M._select_runtime_module_manifest_entry(small_manifest, 'none')"),
    Row("for _ in M._runtime_module_manifest_entries(large_manifest): pass", PARITY),
    Row("M.create_runtime_freshness_guard('data')"),
    Row("M._forget_preloaded_backtester_modules()"),
    Row("repr(M.token)"),
]

# What plain Python does in a few specialised instructions, or in a call of another Python function: the call of a
# native function costs there about what it saves.
FORWARDING = [
    Row("M.get_agents_md_fragment()", 1.0, "len(key)"),
    Row("M._resolve_invite_code('code')"),
    Row("M._resolve_optional_invite_code(None)", PARITY),
    Row("M._LocalRuntimeSyncManager(small_manifest)"),
    Row("M.sync_manager.get_manifest()", PARITY),
    Row("M.sync_manager.request_for_sync()"),
    Row("M.sync_manager.acquire()"),
]

REFUSALS = [
    Row("try: M.configure(market_id=0)\nexcept ValueError: pass"),
    Row("try: M.configure(colour=1)\nexcept ValueError: pass"),
    Row("try: M.login()\nexcept TypeError: pass"),
    Row("try: M.login(None)\nexcept ValueError: pass"),
    Row("try: M._read_manifest('nowhere')\nexcept M.RuntimeModuleDownloadIncomplete: pass"),
]

# At parity: the files cost the most, and most of the rest is the standard library's own Python code.
WITH_FILES = [
    Row("M._canonical_data_dir('data')", PARITY),
    Row("M._find_heartbeat()"),
    Row("M.inject_heartbeat()", PARITY, "open('HEARTBEAT.md', encoding='utf-8').read()"),
    Row("M.update_nudge('first_signal')", PARITY, "open('HEARTBEAT.md', encoding='utf-8').read()"),
    Row("M._read_wallet_key('data')", PARITY, "open('data/wallet.key').read()"),
    Row("M._write_wallet_key('data', key)", PARITY),
    Row("M._read_manifest('data')", PARITY, "json.load(open('data/manifest.json'))"),
    Row("M._local_vocabulary_path('data', 'majors')", PARITY),
    Row("M._sha256_file('large')", 1.03, "hashlib.file_digest(open('large', 'rb'), 'sha256').hexdigest()"),
]


def load_plain():
    source = HERE / "plain/agent_onboarding.py"
    module = ModuleType("sablecrest.agent_onboarding")
    exec(compile(source.read_bytes(), source, "exec"), vars(module))
    return module


def prepare(native, plain):
    """The names that the statements use, and the files of the current folder that they read."""
    names = [f"universe_{i}" for i in range(1000)]
    entries = {f"modules/{i}.so": {"kind": "runtime_module", "sha256": "0" * 64} for i in range(100_000)}
    small = {"era_number": 12, "version": 1, "files": dict(list(entries.items())[:20])}
    error = RuntimeError("outer")
    error.__cause__ = ValueError("inner")
    for module in (native, plain):
        module.sync_manager = module._LocalRuntimeSyncManager(small)
        module.token = module.AuthToken("token", 1.5)
        module._ensure_legacy_src_namespace_alias()
        module.era_salt = sys.modules["src.obfuscation.layers.shared._core"].era_salt
    Path("data").mkdir()
    Path("data/manifest.json").write_text(json.dumps(small))
    Path("large").write_bytes(bytes(HASHED_BYTES))
    Path("HEARTBEAT.md").write_text("# Checks\n")
    native._write_wallet_key("data", "ab" * 32)
    native.inject_heartbeat()
    native.update_nudge("first_signal")
    return {
        "key": "ab" * 32,
        "error": error,
        "missing": ModuleNotFoundError(name="sablecrest"),
        "small_era": {"named_universe": "a", "allowed_named_universes": ["b", "a"], "universes": [{"id": "d"}, "e"]},
        "large_era": {"allowed_named_universes": names},
        "src": ModuleType("src"),
        "small_manifest": small,
        "large_manifest": {"files": entries},
        "json": json,
        "hashlib": hashlib,
    }


def seconds(statement, names, number):
    """Of processor time, so that a busy machine changes little."""
    return timeit.timeit(statement, globals=names, number=number, timer=time.process_time) / number


def measure(row, names, modules, rounds):
    """Seconds of native, plain and floor, and the sorted ratios of native to plain."""
    loops = [names | {"M": module} for module in modules]
    number = max(1, int(0.01 / seconds(row.statement, loops[1], 1)))
    number = max(1, int(0.02 / seconds(row.statement, loops[1], number)))
    times = [[seconds(row.statement, loop, number) for loop in loops] for _ in range(rounds)]
    floor = min(seconds(row.floor, loops[0], number) for _ in range(3)) if row.floor else None
    ratios = sorted(native / plain for native, plain in times)
    return *(statistics.median(column) for column in zip(*times, strict=True)), floor, ratios


def report(row, native, plain, floor, ratios):
    quarter = len(ratios) // 4
    ratio = statistics.median(ratios)
    kept = ratio <= row.limit
    spread = f"{ratios[quarter]:.2f}-{ratios[-1 - quarter]:.2f}"
    above = f"{native / floor:5.1f}" if floor else "    -"
    verdict = "" if kept else "  MISSED"
    times = f"{native * 1e6:12.3f}{plain * 1e6:12.3f}"
    print(f"{row.statement.splitlines()[0]:75}{times}{ratio:7.2f}  {spread:9} {above}  {row.limit:5.2f}{verdict}")
    return ratio, kept


def import_milliseconds():
    """What the import adds to the imports that it makes: the least of some fresh processes."""
    program = (
        "import time, importlib.util, hashlib, json, logging, os, secrets, shutil, stat, types, urllib.error, "
        "urllib.request, dataclasses, typing\n"
        "from sablecrest import auth, era_config, errors, runtime_module_freshness, settings, skills, sync\n"
        "begin = time.perf_counter()\n"
        "import sablecrest.agent_onboarding\n"
        "print((time.perf_counter() - begin) * 1000)"
    )
    return min(float(subprocess.check_output([sys.executable, "-c", program])) for _ in range(20))


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--rounds", type=int, default=25)
    rounds = parser.parse_args().rounds

    with tempfile.TemporaryDirectory() as folder, contextlib.chdir(folder):
        os.environ["HOME"] = folder
        import sablecrest.agent_onboarding as native

        modules = native, load_plain()
        names = prepare(*modules)
        print(f"{'statement':75}{'native us':>12}{'plain us':>12}{'ratio':>7}  {'spread':9} {'floor':>5}  limit")
        computing = [report(row, *measure(row, names, modules, rounds)) for row in COMPUTING]
        forwarding = [report(row, *measure(row, names, modules, rounds)) for row in FORWARDING]
        refusals = [report(row, *measure(row, names, modules, rounds)) for row in REFUSALS]
        with_files = [report(row, *measure(row, names, modules, max(3, rounds // 3))) for row in WITH_FILES]

    mean = statistics.geometric_mean(ratio for ratio, _ in computing + forwarding)
    added = import_milliseconds()
    print(f"geometric mean without files: {mean:.2f} (limit 0.50)")
    print(f"import: {added:.2f} ms (limit 1.00)")
    kept = all(kept for _, kept in computing + forwarding + refusals + with_files)
    return 0 if kept and mean <= 0.5 and added <= 1 else 1


if __name__ == "__main__":
    sys.exit(main())
