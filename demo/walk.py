"""Walk through the chapters, each in a process and an empty home of its own inside the build folder."""

import os
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent

#: Each chapter with the builds that it is shown with, where they are there; on Windows it is the only one.
CHAPTERS = {"registration": ("cp313",), "runtime_modules": ("cp313", "cp312"), "bring_up": ("cp313", "cp312")}


def walk(chapter: str, build: str, home: Path) -> bool:
    """Run one chapter; whether each of its steps did what it should."""
    # The checklist is looked for in three parents too, none of which may lie outside.
    workspace = home / "workspace"
    workspace.mkdir(parents=True)
    search_path = os.pathsep.join([str(ROOT / "build" / build / "package"), str(ROOT)])
    homes = {"HOME": str(home), "USERPROFILE": str(home)}
    environment = os.environ | homes | {"PYTHONPATH": search_path, "no_proxy": "127.0.0.1"}
    python = sys.executable if build == "windows" else ROOT / ".venv" / build / "bin/python"
    return subprocess.run([python, "-m", f"demo.{chapter}"], cwd=workspace, env=environment).returncode == 0


def main() -> None:
    print(flush=True)
    with tempfile.TemporaryDirectory(prefix="demo-", dir=ROOT / "build") as folder:
        for chapter, builds in CHAPTERS.items():
            for build in builds if os.name == "posix" else ("windows",):
                if not (ROOT / "build" / build).is_dir():
                    print(f"{chapter}: not shown on {build}, which was not built\n", flush=True)
                elif not walk(chapter, build, Path(folder, f"{chapter}-{build}")):
                    sys.exit(f"The demonstration ends here: a step of {chapter} did not do what it should.")
    print("Each step did what it should.")


main()
