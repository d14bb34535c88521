"""Builds sdist and wheels of the last commit into dist/: check_package.py ENVIRONMENT…

Fails unless they have the same bytes when built in two folders, each wheel is small, brings the module and its stub
alone and loads wherever its name says, and the tests pass on it beside the package that it is installed into.
"""

import os
import shlex
import shutil
import subprocess
import sys
import tempfile
import zipfile
from pathlib import Path

import windows

ROOT = Path(__file__).parents[1]
PLATFORM = "manylinux_2_28_x86_64"
LARGEST_WHEEL = 250 * 1024
USE = "from sablecrest import agent_onboarding as module; module.configure(market_id=7); print(module.__file__)"


def run(*command: str | Path, umask: int = -1, **environment: str) -> None:
    print("+", shlex.join(map(str, command)), flush=True)
    subprocess.run(command, check=True, cwd=ROOT, umask=umask, env=os.environ | environment)


def packages(checkout: Path, environments: list[Path], *kinds: str, umask: int = -1, **environment: str) -> list[Path]:
    run("git", "clone", "--quiet", ROOT, checkout, umask=umask)
    builds = [(each, f"{each.name}-{each.name}-{PLATFORM}", "manylinux") for each in environments]
    for each, tag, toolchain in (*builds, (environments[0], "cp313-cp313-win_amd64", "windows")):
        settings = f"-Cwheel.tags={tag}", f"-Ccmake.toolchain-file={checkout}/cmake/{toolchain}.cmake"
        build = each / "bin/python", "-m", "build", "--no-isolation"
        run(*build, *settings, *kinds, checkout, umask=umask, **environment)
    return sorted(checkout.glob("dist/*"))


def require_module_and_stub_alone(wheel: Path) -> None:
    brought = [name for name in zipfile.ZipFile(wheel).namelist() if ".dist-info/" not in name]
    if [name.partition(".")[0] for name in brought] != ["sablecrest/agent_onboarding"] * 2:
        sys.exit(f"{wheel.name} brings {brought}.")
    if wheel.stat().st_size >= LARGEST_WHEEL:
        sys.exit(f"{wheel.name} has {wheel.stat().st_size} bytes.")


def test_on_linux(wheel: Path, environment: Path, folder: Path) -> None:
    """Installs into a copy of the development tree that has not the module itself."""
    python, package = environment / "bin/python", folder / "package"
    run(python, "-m", "pip", "install", "--no-deps", "--no-index", "--target", package, wheel)
    others = shutil.ignore_patterns("agent_onboarding.*")
    shutil.copytree(ROOT / "build" / environment.name, folder, ignore=others, dirs_exist_ok=True)
    run(python, "-m", "pytest", "--numprocesses=auto", "--quiet", PYTHONPATH=f"{package}:{ROOT}")


def test_on_windows(wheel: Path) -> None:
    """Installs with the Windows interpreter's own pip into a new environment, which borrows what the package needs."""
    folder = ROOT / "build/windows-environment"
    shutil.rmtree(folder, ignore_errors=True)
    windows.run("-m", "venv", folder)
    shutil.copytree(ROOT / "package_interfaces/sablecrest", folder / "Lib/site-packages/sablecrest")
    python = folder / "Scripts/python.exe"
    windows.wine(python, "-m", "pip", "install", "--no-deps", "--no-index", f"Z:{wheel}")
    windows.wine(python, "-I", "-W", "error", "-c", USE)


def main(environments: list[Path]) -> None:
    windows.run("--version")  # before the long work, as Wine may be missing
    with tempfile.TemporaryDirectory() as folder:
        work = Path(folder)
        # Once from the checkout; once through the sdist, for somebody elsewhere with other habits.
        made = packages(work / "here", environments, "--sdist", "--wheel")
        others = packages(work / "another place", environments, umask=0o077, TZ="Pacific/Auckland", LC_ALL="C.UTF-8")
        if [(path.name, path.read_bytes()) for path in made] != [(path.name, path.read_bytes()) for path in others]:
            sys.exit(f"The bytes of {made} depend on where and when they are built.")
        wheels = [path for path in made if path.suffix == ".whl"]
        run("twine", "check", "--strict", *made)
        run("check-wheel-contents", *wheels)
        for wheel in wheels:
            require_module_and_stub_alone(wheel)
            if wheel.name.endswith("-win_amd64.whl"):
                test_on_windows(wheel)
                continue
            run("auditwheel", "show", wheel)
            run("auditwheel", "repair", "--plat", PLATFORM, "--wheel-dir", work, wheel)  # fails where it cannot be so
            (environment,) = (each for each in environments if f"-{each.name}-" in wheel.name)
            test_on_linux(wheel, environment, work / environment.name)
        shutil.rmtree(ROOT / "dist", ignore_errors=True)
        ROOT.joinpath("dist").mkdir()
        for path in made:
            print(shutil.copy(path, ROOT / "dist"), path.stat().st_size, "bytes")


if __name__ == "__main__":
    main([Path(environment) for environment in sys.argv[1:]])
