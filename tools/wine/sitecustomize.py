"""Takes away what Wine 8 only seems to have, so that the interpreter does what it does on a Windows without it."""

import _winapi
import os
import sys

sys.modules["_wmi"] = None  # `platform` asks the registry instead
del _winapi.CopyFile2  # `shutil` copies the content itself


def symlink(source, target, target_is_directory=False, *, dir_fd=None):
    """Refuses, as Windows does without the privilege: Wine's links are none that `os.lstat` would know."""
    raise OSError(22, "A required privilege is not held by the client", source, 1314, target)


os.symlink = symlink
