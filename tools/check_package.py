"""Fails unless the last commit packages as it should.

Built in two folders, sdist and wheel have the same bytes; the wheel is small, brings the module and its types alone,
and works beside the package that it is installed into.
"""

import os
import shutil
import subprocess
import sys
import sysconfig
import tempfile
import venv
import zipfile
from collections.abc import Mapping
from pathlib import Path

ROOT = Path(__file__).parents[1]
LARGEST_WHEEL = 250 * 1024
FILES = {"agent_onboarding" + sysconfig.get_config_var("EXT_SUFFIX"), "agent_onboarding.pyi", "py.typed"}


def run(*command: str | Path, umask: int = -1, **environment: str) -> None:
    done = subprocess.run(
        command,
        env={**os.environ, **environment},
        umask=umask,
        text=True,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
    )
    if done.returncode:
        sys.exit(f"{done.stdout}\n{command} failed.")


def packages(checkout: Path, *kinds: str, umask: int = -1, **environment: str) -> Mapping[str, Path]:
    run("git", "clone", "--quiet", ROOT, checkout, umask=umask)
    run(sys.executable, "-m", "build", *kinds, checkout, umask=umask, **environment)
    return {path.name: path for path in checkout.joinpath("dist").iterdir()}


def require_same_bytes(some: Mapping[str, Path], others: Mapping[str, Path]) -> None:
    if different := [name for name in {*some, *others} if some[name].read_bytes() != others[name].read_bytes()]:
        sys.exit(f"The bytes of {different} depend on where and when they are built.")


def require_only_module_and_types(wheel: Path) -> None:
    brought = {name for name in zipfile.ZipFile(wheel).namelist() if ".dist-info/" not in name}
    if brought != {f"sablecrest/{name}" for name in FILES}:
        sys.exit(f"{wheel.name} brings {brought}.")
    if wheel.stat().st_size >= LARGEST_WHEEL:
        sys.exit(f"{wheel.name} has {wheel.stat().st_size} bytes.")


def require_working_beside_package(wheel: Path, environment: Path) -> None:
    venv.create(environment, with_pip=True)
    python = environment / "bin/python"
    site = Path(sysconfig.get_path("platlib", vars={"base": environment, "platbase": environment}))
    shutil.copytree(ROOT / "package_interfaces/sablecrest", site / "sablecrest")
    run(python, "-m", "pip", "install", "--no-deps", "--no-index", "--disable-pip-version-check", wheel)
    use = "from sablecrest import agent_onboarding as module; module.configure(market_id=7); print(module.__file__)"
    # What the package itself needs is borrowed from the environment of this check.
    run(python, "-W", "error", "-c", use, PYTHONPATH=sysconfig.get_path("platlib"))


def main() -> None:
    with tempfile.TemporaryDirectory() as folder:
        work = Path(folder)
        # Once from the checkout; once through the sdist, for somebody elsewhere with other habits.
        made = packages(work / "here", "--sdist", "--wheel")
        require_same_bytes(made, packages(work / "another place", umask=0o077, TZ="Pacific/Auckland", LC_ALL="C.UTF-8"))
        (wheel,) = (path for name, path in made.items() if name.endswith(".whl"))
        require_only_module_and_types(wheel)
        require_working_beside_package(wheel, work / "environment")
        print(f"{wheel.name} has {wheel.stat().st_size} bytes, which are the same wherever it is built.")


if __name__ == "__main__":
    main()
