"""Builds for 64-bit Windows, and runs the official CPython for Windows under Wine.

    windows.py build            build everything, and check the module's file
    windows.py test             build, then run the demonstration and the tests
    windows.py bench            build, then compare the speed with plain Python
    windows.py run ARGUMENT...  run the interpreter with the built module

What they need is set up in .venv/windows; Wine itself has to be there.
"""

import os
import shutil
import signal
import subprocess
import sys
from pathlib import Path

import lief

ROOT = Path(__file__).parents[1]
REQUIREMENTS = ROOT / "requirements/windows.txt"
FOR_WINE = ROOT / "tools/wine"
PYTHON, PREFIX = (ROOT / ".venv/windows" / name for name in ("python", "prefix"))
MODULE = ROOT / "build/windows/package/sablecrest/agent_onboarding.cp313-win_amd64.pyd"

#: What is not of the official interpreter, or not used.
LEFT_OUT = ("Lib/site-packages", "Scripts", "tcl")
SIGNERS = {"Python Software Foundation", "Microsoft Windows Software Compatibility Publisher"}

# For the build: this environment's tools, and what cmake/windows.cmake asks for.
os.environ |= {"PATH": f"{Path(sys.executable).parent}:{os.environ['PATH']}", "WINDOWS_PYTHON": str(PYTHON)}
WINE_ENVIRONMENT = os.environ | {
    "WINEARCH": "win64",
    "WINEDEBUG": "-all",
    "WINEDLLOVERRIDES": "winemenubuilder.exe=",
    "HOME": str(PREFIX.parent),  # Wine links its folders to those of the user's home
    "DISPLAY": "",
    "LC_ALL": "C.UTF-8",
    "PYTHONPATH": f"Z:{ROOT}/build/windows/package;Z:{ROOT}",
    "PYTHONIOENCODING": "utf-8",
    "PYTHONUNBUFFERED": "1",
}


def call(*command: str | Path) -> None:
    subprocess.run(command, check=True, cwd=ROOT)


def set_up_interpreter() -> None:
    """Installs the interpreter and what the tests need, verifies it, and gives it what Wine lacks."""
    sources = (REQUIREMENTS, *sorted(FOR_WINE.glob("*.*")))
    mark, made_from = PYTHON / "made_from", b"".join(source.read_bytes() for source in sources)
    if mark.exists() and mark.read_bytes() == made_from:
        return
    print(f"Setting up {PYTHON.relative_to(ROOT)}", flush=True)
    shutil.rmtree(PYTHON, ignore_errors=True)
    target = ("--target", PYTHON, "--platform", "win_amd64", "--python-version", "3.13", "--no-deps")
    call("pip", "install", "-qq", "--disable-pip-version-check", "--require-hashes", *target, "-r", REQUIREMENTS)
    for name in LEFT_OUT:
        shutil.rmtree(PYTHON / name)
    refuse_unsigned()
    compiler = ("python-zig", "cc", "-target", "x86_64-windows-gnu", "-shared", "-O2", "-s")
    call(*compiler, FOR_WINE / "bcryptprimitives.c", "-ladvapi32", "-o", PYTHON / "bcryptprimitives.dll")
    shutil.copy(FOR_WINE / "sitecustomize.py", PYTHON)
    mark.write_bytes(made_from)


def refuse_unsigned() -> None:
    """Fails unless every program and library of the interpreter is signed by who makes them."""
    for path in (path for pattern in ("**/*.exe", "**/*.dll", "DLLs/*.pyd") for path in PYTHON.glob(pattern)):
        program = lief.PE.parse(path)
        subjects = [signer.cert.subject for signature in program.signatures for signer in signature.signers]
        names = {subject.rpartition("CN=")[2] for subject in subjects}
        if program.verify_signature() != lief.PE.Signature.VERIFICATION_FLAGS.OK or not names <= SIGNERS:
            sys.exit(f"{path} is not signed by {' or '.join(sorted(SIGNERS))}.")


def set_up_wine() -> None:
    """Makes a Windows 10 of Wine, which has its name once it is whole."""
    if not shutil.which("wine"):
        sys.exit("Wine is missing. On Debian: apt-get install --no-install-recommends wine wine64")
    if not PREFIX.exists():
        print(f"Setting up {PREFIX.relative_to(ROOT)}", flush=True)
        unfinished = PREFIX.with_name("unfinished")
        shutil.rmtree(unfinished, ignore_errors=True)
        wine("winecfg", "-v", "win10", prefix=unfinished)
        unfinished.rename(PREFIX)


def wine(*command: str | Path, prefix: Path = PREFIX) -> None:
    """Shows what the command prints, live; fails where it fails. Nothing of this Wine outlives it."""
    environment = WINE_ENVIRONMENT | {"WINEPREFIX": str(prefix)}
    # On a terminal Wine would draw a console of its own.
    with_pipe = '"$@" </dev/null 2>&1 | stdbuf --output=0 tr -d "\\r"'
    try:
        shell = ("bash", "-o", "pipefail", "-c", with_pipe, "-")
        status = subprocess.run([*shell, "wine", *command], cwd=ROOT, env=environment).returncode
    finally:
        subprocess.run(["wineserver", "--kill"], env=environment)
    if status:
        sys.exit(f"Wine ended with {status}.")


def run(*arguments: str | Path) -> None:
    """Runs the Windows interpreter, which finds the built module, the stand-ins and the checkout."""
    set_up_interpreter()
    set_up_wine()
    wine(PYTHON / "python.exe", *arguments)


def build() -> None:
    set_up_interpreter()
    call("cmake", "--preset", "windows", "--log-level=NOTICE")
    call("cmake", "--build", "--preset", "windows")
    call("python", "tools/check_module.py", MODULE)
    print(f"{MODULE.relative_to(ROOT)}: {MODULE.stat().st_size} bytes")
    print("Copy it into the sablecrest package of a 64-bit CPython 3.13 for Windows; or here, under Wine:")
    print('    .venv/cp313/bin/python tools/windows.py run -c "import sablecrest.agent_onboarding as m; print(m)"')


def test() -> None:
    build()
    run("demo/walk.py")
    run("-X", "dev", "-W", "error", "-m", "pytest", "--numprocesses=auto", "--dist=worksteal")


def bench() -> None:
    build()
    peer, toolchain = "build/windows-cython", f"--toolchain={ROOT}/cmake/windows.cmake"
    call("cmake", "-S", "benchmarks", "-B", peer, "-G", "Ninja", toolchain)
    call("cmake", "--build", peer)
    results = ("--linux=benchmarks/results/linux.json", "--save=benchmarks/results/windows.json")
    run("benchmarks/benchmark.py", f"--cython={peer}/agent_onboarding.pyd", *results)


if __name__ == "__main__":
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("Terminated."))
    name, *arguments = sys.argv[1:] or sys.exit(__doc__)
    {"build": build, "test": test, "bench": bench, "run": run}[name](*arguments)
