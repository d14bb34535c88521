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
BIN = Path(sys.executable).parent
PLATFORM = "manylinux_2_28_x86_64"
LARGEST_WHEEL = 250 * 1024
USE = "from sablecrest import agent_onboarding as module; module.configure(market_id=7); print(module.__file__)"


def run(*command: str | Path, umask: int = -1, **environment: str) -> None:
    print("+", shlex.join(map(str, command)), flush=True)
    path = os.pathsep.join([str(BIN), os.environ["PATH"]])
    subprocess.run(command, check=True, cwd=ROOT, umask=umask, env=os.environ | {"PATH": path} | environment)


def packages(checkout: Path, environments: list[Path], *kinds: str, umask: int = -1, **environment: str) -> list[Path]:
    run("git", "clone", "--quiet", ROOT, checkout, umask=umask)
    for each in environments:
        tag = f"--config-setting=wheel.tags={each.name}-{each.name}-{PLATFORM}"
        toolchain = f"--config-setting=cmake.toolchain-file={checkout}/cmake/manylinux.cmake"
        build = each / "bin/python", "-m", "build", "--no-isolation", tag, toolchain
        run(*build, *kinds, checkout, umask=umask, **environment)
    for_windows = {"CMAKE_TOOLCHAIN_FILE": f"{checkout}/cmake/windows.cmake", "WINDOWS_PYTHON": str(windows.PYTHON)}
    build = BIN / "python", "-m", "build", "--no-isolation", "--wheel"
    run(*build, checkout, umask=umask, _PYTHON_HOST_PLATFORM="win-amd64", **for_windows, **environment)
    return sorted(checkout.glob("dist/*"))


def require_module_and_stub_alone(wheel: Path) -> None:
    brought = sorted(Path(name) for name in zipfile.ZipFile(wheel).namelist() if ".dist-info/" not in name)
    if [path.parent / path.name.partition(".")[0] for path in brought] != [Path("sablecrest/agent_onboarding")] * 2:
        sys.exit(f"{wheel.name} brings {brought}.")
    if wheel.stat().st_size >= LARGEST_WHEEL:
        sys.exit(f"{wheel.name} has {wheel.stat().st_size} bytes.")


def test_beside_package(wheel: Path, environment: Path, folder: Path) -> None:
    """Installs into a new environment, which borrows what the tests need."""
    run(environment / "bin/python", "-m", "venv", folder)
    built = ROOT / "build" / environment.name
    (site,) = folder.glob("lib/python*/site-packages")
    (borrowed,) = environment.resolve().glob("lib/python*/site-packages")
    site.joinpath("borrowed.pth").write_text(f"{borrowed}\n{ROOT}\n")
    shutil.copytree(ROOT / "package_interfaces/sablecrest", site / "sablecrest")
    shutil.copytree(built / "runtime_modules", site.parent / "runtime_modules")
    for layer_test in built.glob("package/layer_test.*"):
        shutil.copy(layer_test, site)
    run(folder / "bin/pip", "install", "--no-deps", "--no-index", "--disable-pip-version-check", wheel)
    run(folder / "bin/python", "-m", "pytest", "--numprocesses=auto", "--quiet")


def test_on_windows(wheel: Path) -> None:
    """Installs with the Windows interpreter's own pip into a new environment, which borrows what the package needs."""
    folder = ROOT / "build/windows-environment"
    shutil.rmtree(folder, ignore_errors=True)
    windows.run("-m", "venv", "--without-pip", "--system-site-packages", folder)
    shutil.copytree(ROOT / "package_interfaces/sablecrest", folder / "Lib/site-packages/sablecrest")
    python = folder / "Scripts/python.exe"
    windows.run_wine("wine", python, "-m", "ensurepip")
    windows.run_wine("wine", python, "-m", "pip", "install", "--no-deps", "--no-index", f"Z:{wheel}")
    windows.run_wine("wine", python, "-I", "-W", "error", "-c", USE)


def main(environments: list[Path]) -> None:
    windows.set_up_interpreter()
    if has_wine := shutil.which("wine") is not None:
        windows.set_up_wine()
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
                if has_wine:
                    test_on_windows(wheel)
                else:
                    print(f"Without Wine, {wheel.name} was not tried.", flush=True)
                continue
            run("auditwheel", "show", wheel)
            run("auditwheel", "repair", "--plat", PLATFORM, "--wheel-dir", work, wheel)  # fails where it cannot be so
        for environment in environments:
            (wheel,) = (wheel for wheel in wheels if f"{environment.name}-many" in wheel.name)
            test_beside_package(wheel, environment, work / environment.name)
        shutil.rmtree(ROOT / "dist", ignore_errors=True)
        ROOT.joinpath("dist").mkdir()
        for path in made:
            print(shutil.copy(path, ROOT / "dist"), path.stat().st_size, "bytes")


if __name__ == "__main__":
    main([Path(environment) for environment in sys.argv[1:]])
