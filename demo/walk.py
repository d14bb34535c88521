"""Walk through the chapters, each in a process and an empty home of its own inside the build folder."""

import os
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent

#: Each chapter with the interpreters that it is shown on, where they are installed.
CHAPTERS = {"registration": ("cp313",), "runtime_modules": ("cp313", "cp312"), "bring_up": ("cp313", "cp312")}


def walk(chapter: str, interpreter: str, home: Path) -> bool:
    """Run one chapter; whether each of its steps did what it should."""
    # The checklist is looked for in three parents too, none of which may lie outside.
    workspace = home / "workspace"
    workspace.mkdir(parents=True)
    search_path = os.pathsep.join([str(ROOT / "build" / interpreter / "package"), str(ROOT)])
    environment = os.environ | {"HOME": str(home), "PYTHONPATH": search_path, "no_proxy": "127.0.0.1"}
    python = ROOT / ".venv" / interpreter / "bin" / "python"
    return subprocess.run([python, "-m", f"demo.{chapter}"], cwd=workspace, env=environment).returncode == 0


def main() -> None:
    print(flush=True)
    with tempfile.TemporaryDirectory(prefix="demo-", dir=ROOT / "build") as folder:
        for chapter, interpreters in CHAPTERS.items():
            for interpreter in interpreters:
                if not (ROOT / ".venv" / interpreter).is_dir():
                    print(f"{chapter}: not shown on {interpreter}, which was not found\n", flush=True)
                elif not walk(chapter, interpreter, Path(folder, f"{chapter}-{interpreter}")):
                    sys.exit(f"The demonstration ends here: a step of {chapter} did not do what it should.")
    print("Each step did what it should.")


main()
