"""Where the tests run: everything that they write stays in the clone."""

import atexit
import os
import tempfile
from pathlib import Path

ROOT = Path(__file__).parents[2]
FOLDER = ROOT / "build/tests"
FOLDER.mkdir(parents=True, exist_ok=True)
# Before any module asks for the temporary folder, or for the home of this process, which lies in it.
tempfile.tempdir = str(FOLDER)
HOME = tempfile.TemporaryDirectory(prefix="home-")
atexit.register(HOME.cleanup)
os.environ.update(dict.fromkeys(("TMPDIR", "TEMP", "TMP"), str(FOLDER)))
os.environ.update(dict.fromkeys(("HOME", "USERPROFILE"), os.path.realpath(HOME.name)))
