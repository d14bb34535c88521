"""Writes the data directory of an era: its data files, compiled runtime modules, and the manifest that lists them."""

import argparse
import hashlib
import json
import os
import random
from collections.abc import Iterator, Sequence
from itertools import accumulate
from pathlib import Path

import sablecrest
from sablecrest.era_config import EpochName
from sablecrest.sync import CURRENT_PLATFORM

#: What was compiled together with the package that is in use.
BUILT_MODULES = Path(sablecrest.__path__[0]).parents[1] / "runtime_modules"

STEPS = 250
VOCABULARY = {"features": ["close", "volume"], "functions": ["momentum", "reversal", "deviation"]}
SIGNALS = {
    "found_signals": {"momentum(close)": {"pnl": 4.5}},
    "found_strategies": {},
    "useful_signals": {"momentum(close)": {"reason": "trades with the trend"}},
}


def make_data_directory(
    target: str | os.PathLike,
    *,
    modules: str | os.PathLike | None = None,
    names: Sequence[str] = ("era_data", "backtester"),
    era_data_version: int = 1,
    era_number: int = 12,
    universes: Sequence[str] = ("majors",),
) -> dict:
    """Write or update the folder `target` and return its manifest.

    `names` are the runtime modules to take from the folder `modules` of a build; "vault" is the older name of
    "era_data". Without `modules` the era ships no native module. The manifest comes last, so that whoever reads it
    finds the files it names.
    """
    contents: dict[str, tuple[dict, bytes]] = {}
    if modules is not None:
        for name in names:
            file = _compiled_file(Path(modules), name, era_data_version)
            path = f"runtime/{name}.{file.name.partition('.')[2]}"
            contents[path] = {"kind": f"runtime_module:{name}", "platform": CURRENT_PLATFORM}, file.read_bytes()
    for universe in universes:
        contents[f"features/{universe}/vocabulary.json"] = {"kind": "vocabulary"}, _json(VOCABULARY)
        for path, series in _features(f"features/{universe}", era_number):
            contents[path] = {"kind": "feature"}, "".join(f"{value!r}\n" for value in series).encode()
    contents["signals_index.json"] = {"kind": "signals_index"}, _json({"momentum(close)": list(universes)})

    files = {}
    for path, (entry, content) in contents.items():
        replace_file(Path(target, path), content)
        files[path] = entry | {"sha256": hashlib.sha256(content).hexdigest(), "size": len(content)}
    manifest = {"era_number": era_number, "version": f"{era_number}.{era_data_version}", **SIGNALS, "files": files}
    write_manifest(target, manifest)
    return manifest


def write_manifest(target: str | os.PathLike, manifest: dict) -> None:
    replace_file(Path(target, "manifest.json"), _json(manifest))


def replace_file(path: Path, content: bytes) -> None:
    """Give `path` a new file with this content; whoever has the old one open or linked keeps the old bytes."""
    path.parent.mkdir(parents=True, exist_ok=True)
    complete = path.with_name(f".{path.name}.part")
    complete.write_bytes(content)
    complete.replace(path)


def _compiled_file(modules: Path, name: str, era_data_version: int) -> Path:
    built = f"era_data_{era_data_version}" if name in ("era_data", "vault") else name
    found = [path for path in modules.glob(f"{built}.*") if path.suffix in (".so", ".pyd")]
    if len(found) != 1:
        raise FileNotFoundError(f"{modules} must hold {built} compiled for one interpreter, it holds {len(found)}.")
    return found[0]


def _features(folder: str, era_number: int) -> Iterator[tuple[str, list[float]]]:
    """Prices that drift, so that some signals earn and others lose, and volumes; the same for each call."""
    for epoch in EpochName:
        values = random.Random(f"{era_number} {folder} {epoch.value}")
        close = accumulate((values.gauss(0.05, 1) for _ in range(STEPS - 1)), initial=100.0)
        yield f"{folder}/{epoch.value}/close.csv", [round(price, 4) for price in close]
        yield f"{folder}/{epoch.value}/volume.csv", [round(values.uniform(1e3, 9e3), 1) for _ in range(STEPS)]


def _json(value: object) -> bytes:
    return json.dumps(value, indent=1).encode() + b"\n"


def main() -> None:
    parser = argparse.ArgumentParser(prog="python -m runtime_modules.make_data_directory", description=__doc__)
    parser.add_argument("target", metavar="FOLDER")
    parser.add_argument("--modules", metavar="FOLDER", help="a build's runtime_modules; without it the era ships none")
    parser.add_argument("--names", nargs="+", metavar="NAME", help="the modules to ship")
    parser.add_argument("--era-data-version", type=int, metavar="NUMBER")
    parser.add_argument("--era-number", type=int, metavar="NUMBER")
    parser.add_argument("--universes", nargs="+", metavar="NAME")
    options = vars(parser.parse_args())
    manifest = make_data_directory(**{name: value for name, value in options.items() if value is not None})
    print(f"Era {manifest['era_number']}, version {manifest['version']}: {len(manifest['files'])} files")


if __name__ == "__main__":
    main()
