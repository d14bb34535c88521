"""Times every operation beside the same algorithms in plain Python, as it is and compiled with Cython, in one run, and
fails where a limit is missed.

Run with the built package on the path (`make bench`). A row's ratio is the median of native time over plain time, of
rounds that alternate between the modules; its spread is that of the middle half of the rounds.
"""

import argparse
import contextlib
import ctypes
import importlib.util
import json
import os
import platform
import py_compile
import shutil
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path
from timeit import Timer
from types import ModuleType

HERE = Path(__file__).resolve().parent
NAME = "sablecrest.agent_onboarding"
ON_WINDOWS = sys.platform == "win32"
IMPORTS = 12 if ON_WINDOWS else 40  # fresh processes, which start slowly under Wine
# Processor time, of which a busy machine changes little; Windows counts it in steps of 15 ms.
CLOCK = time.perf_counter if ON_WINDOWS else time.process_time

# What the rows of a kind may cost at most, in plain Python's time. What only forwards, constructs or refuses is a few
# specialised instructions there, and the call of a native function costs about what it saves. Where files are involved
# they cost the most, and most of the rest is the standard library's own Python code.
LIMITS = {"own work": 1.00, "forwards, constructs": 2.00, "refuses": 2.00, "with files": 1.05, "import": 0.90}
# Of the geometric mean of the rows without files and refusals.
MEAN_LIMIT = 0.67 if ON_WINDOWS else 0.58
WINDOWS_OVER_LINUX_LIMIT = 1.15

# M is the module.
STATEMENTS = {
    "own work": [
        "M.configure()",
        "M.configure(market_id=7)",
        "M.configure(named_universe='majors', auto_heartbeat=True)",
        "M._safe_named_universe('majors')",
        "M._safe_named_universe(' majors ')",
        "M._safe_named_universe(None)",
        "M._normalize_key(key)",
        "M._normalize_key('0x' + key)",
        "M._expected_type_name((int, float))",
        "M._exception_chain_detail(error)",
        "M._configured_signal_service_url()",
        "M.update_nudge('unknown')",
        "M._legacy_src_module_name('src', 'obfuscation', 'layers')",
        "M._ensure_package_module('json')",
        "M._ensure_legacy_src_obfuscation_core_alias(src)",
        "M.era_salt(1, 2)",
        "M._module_not_found_is_candidate(missing, 'sablecrest.simulator_engine')",
        "M._append_unique_named_universe([], 'majors')",
        "M._append_allowed_named_universes([], ['majors', 'minors', 'majors'])",
        "M._active_era_named_universe_candidates(small_era)",
        "M._active_era_named_universe_candidates(large_era)",
        "M._first_allowed_named_universe_from_era_config(small_era)",
        "M._manifest_files(small_manifest)",
        "M._manifest_payload_mapping_or_empty(small_manifest, 'files')",
        "M._select_runtime_module_manifest_entry(small_manifest, 'none')",
        "for _ in M._runtime_module_manifest_entries(large_manifest): pass",
        "M._forget_preloaded_backtester_modules()",
        "repr(M.token)",
    ],
    "forwards, constructs": [
        "M.get_agents_md_fragment()",
        "M._resolve_invite_code('code')",
        "M._resolve_optional_invite_code(None)",
        "M._unsafe_wallet_error('/wallet.key')",
        "M.create_runtime_freshness_guard('data')",
        "M._LocalRuntimeSyncManager(small_manifest)",
        "M.sync_manager.get_manifest()",
        "M.sync_manager.request_for_sync()",
        "M.sync_manager.acquire()",
    ],
    "refuses": [
        "try: M.configure(market_id=0)\nexcept ValueError: pass",
        "try: M.configure(colour=1)\nexcept ValueError: pass",
        "try: M.login()\nexcept TypeError: pass",
        "try: M.login(None)\nexcept ValueError: pass",
        "try: M._read_manifest('nowhere')\nexcept M.RuntimeModuleDownloadIncomplete: pass",
    ],
    "with files": [
        "M._canonical_data_dir('data')",
        "M._find_heartbeat()",
        "M.inject_heartbeat()",
        "M.update_nudge('first_signal')",
        "M._read_wallet_key('data')",
        "M._write_wallet_key('data', key)",
        "M._read_manifest('data')",
        "M._local_vocabulary_path('data', 'majors')",
        "M._sha256_file('large')",
    ],
}


def load(path):
    spec = importlib.util.spec_from_file_location(NAME, path)
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def prepare(modules):
    """The names that the statements use, and the files of the current folder that they read."""
    names = [f"universe_{i}" for i in range(1000)]
    entries = {f"modules/{i}.so": {"kind": "runtime_module", "sha256": "0" * 64} for i in range(100_000)}
    small = {"era_number": 12, "version": 1, "files": dict(list(entries.items())[:20])}
    error = RuntimeError("outer")
    error.__cause__ = ValueError("inner")
    Path("data").mkdir()
    Path("data/manifest.json").write_text(json.dumps(small))
    Path("large").write_bytes(bytes(64 * 2**20))
    Path("HEARTBEAT.md").write_text("# Checks\n")
    for module in modules:
        module.sync_manager = module._LocalRuntimeSyncManager(small)
        module.token = module.AuthToken("token", 1.5)
        module._ensure_legacy_src_namespace_alias()
        module.era_salt = sys.modules["src.obfuscation.layers.shared._core"].era_salt
        module._write_wallet_key("data", "ab" * 32)
        module.inject_heartbeat()
        module.update_nudge("first_signal")
    return {
        "key": "ab" * 32,
        "error": error,
        "missing": ModuleNotFoundError(name="sablecrest"),
        "small_era": {"named_universe": "a", "allowed_named_universes": ["b", "a"], "universes": [{"id": "d"}, "e"]},
        "large_era": {"allowed_named_universes": names},
        "src": ModuleType("src"),
        "small_manifest": small,
        "large_manifest": {"files": entries},
    }


def measure(statement, names, modules, rounds):
    """Microseconds of each module, and the sorted ratios of the native one to the plain one."""
    timers = {name: Timer(statement, globals=names | {"M": module}, timer=CLOCK) for name, module in modules.items()}
    number = 1
    while timers["plain"].timeit(number) < 0.01:
        number *= 2
    times = [{name: timer.timeit(number) / number * 1e6 for name, timer in timers.items()} for _ in range(rounds)]
    medians = {name: statistics.median(each[name] for each in times) for name in modules}
    return medians, sorted(each["native"] / each["plain"] for each in times)


def measure_import(unit, sources, processes):
    """The least that a fresh process needed for each module."""
    least = dict.fromkeys(sources, float("inf"))
    with tempfile.TemporaryDirectory() as parent:
        for name, source in sources.items():
            Path(parent, name).mkdir()
            copy = shutil.copy(source, Path(parent, name))
            if source.suffix == ".py":
                py_compile.compile(copy, doraise=True)
        if hasattr(os, "sync"):
            os.sync()  # pages of a file that was just written count as dirty
        for name in [*sources] * processes:
            command = [sys.executable, HERE / "import_cost.py", unit, Path(parent, name)]
            least[name] = min(least[name], float(subprocess.check_output(command)))
    return least


def report(kind, statement, times, ratios):
    """The row, printed."""
    title, ratio, quarter = statement.splitlines()[0], round(statistics.median(ratios), 2), len(ratios) // 4
    columns = "".join(f"{time:12.3f}" for time in times.values())
    spread = f"{ratios[quarter]:.2f}-{ratios[-1 - quarter]:.2f}"
    kept = ratio <= LIMITS[kind]
    print(f"  {title:73}{columns}{ratio:7.2f}  {spread}{'' if kept else '  MISSED'}", flush=True)
    return {"kind": kind, "statement": title, "ratio": ratio, "kept": kept, "microseconds": times}


def mean_without_files(rows):
    return statistics.geometric_mean(row["ratio"] for row in rows if row["kind"] in [*LIMITS][:2])


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--rounds", type=int, default=25)
    parser.add_argument("--cython", type=Path, help="the plain rendering, compiled with Cython")
    parser.add_argument("--linux", type=Path, help="what --save wrote for the same commit on Linux, to compare with")
    parser.add_argument("--save", type=Path, help="a JSON file of what was measured, for chart.py")
    arguments = parser.parse_args()

    native = importlib.import_module(NAME)
    sources = {"native": Path(native.__file__), "plain": HERE / "plain/agent_onboarding.py", "cython": arguments.cython}
    sources = {name: path for name, path in sources.items() if path}
    modules = {name: native if name == "native" else load(path) for name, path in sources.items()}
    print(f"{'microseconds':75}{''.join(f'{name:>12}' for name in sources)}  ratio  spread")
    rows = []
    with tempfile.TemporaryDirectory() as folder, contextlib.chdir(folder):
        os.environ["HOME"] = os.environ["USERPROFILE"] = folder
        names = prepare(modules.values())
        for kind, statements in STATEMENTS.items():
            print(f"{kind} (limit {LIMITS[kind]:.2f})")
            rows += [report(kind, each, *measure(each, names, modules, arguments.rounds)) for each in statements]
    print(f"import (limit {LIMITS['import']:.2f}), the least of {IMPORTS} fresh processes")
    microseconds = measure_import("microseconds", sources, IMPORTS)
    rows.append(report("import", f"import {NAME}", microseconds, [microseconds["native"] / microseconds["plain"]]))
    figures = {"size of the file, KiB": {name: path.stat().st_size / 1024 for name, path in sources.items()}}
    if sys.platform == "linux":
        figures["memory that it adds, KiB"] = measure_import("private_kilobytes", sources, IMPORTS // 8)
        figures["of that in each process, KiB"] = measure_import("dirty_kilobytes", sources, IMPORTS // 8)
    for what, each in figures.items():
        print(f"  {what:73}{''.join(f'{number:12.0f}' for number in each.values())}")

    means = {"geometric mean without files": (mean_without_files(rows), MEAN_LIMIT)}
    if arguments.linux:
        linux = mean_without_files(json.loads(arguments.linux.read_text())["rows"])
        means["that over Linux's"] = mean_without_files(rows) / linux, WINDOWS_OVER_LINUX_LIMIT
    for what, (mean, limit) in means.items():
        print(f"{what}: {mean:.2f} (limit {limit:.2f}){'' if mean <= limit else '  MISSED'}")
    if arguments.save:
        under_wine = ON_WINDOWS and hasattr(ctypes.WinDLL("ntdll"), "wine_get_version")
        system = f"{platform.system()}{under_wine * ' under Wine'}, CPython {platform.python_version()}"
        arguments.save.write_text(json.dumps({"system": system, "rows": rows}, indent=1) + "\n")
    return 0 if all(row["kept"] for row in rows) and all(mean <= limit for mean, limit in means.values()) else 1


if __name__ == "__main__":
    sys.exit(main())
