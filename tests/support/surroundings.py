"""Where the tests run: everything that they write stays in the clone."""

import atexit
import os
import tempfile
from pathlib import Path

ROOT = Path(__file__).parents[2]


# To be called before any module asks for the temporary folder, or for the home of this process, which lies in it.
def stay_inside():
    folder = ROOT / "build/tests"
    folder.mkdir(parents=True, exist_ok=True)
    tempfile.tempdir = str(folder)
    home = tempfile.TemporaryDirectory(prefix="home-")
    atexit.register(home.cleanup)
    os.environ.update(dict.fromkeys(("TMPDIR", "TEMP", "TMP"), str(folder)))
    os.environ.update(dict.fromkeys(("HOME", "USERPROFILE"), os.path.realpath(home.name)))
