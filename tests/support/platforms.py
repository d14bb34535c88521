"""What some tests need of the platform, and why they are skipped where it has none."""

import os
import tempfile
from contextlib import suppress

import pytest


def can_link():
    with tempfile.TemporaryDirectory() as folder, suppress(OSError):
        os.symlink("target", os.path.join(folder, "link"))
        return True


def needs(is_there, reason):
    return pytest.mark.skipif(not is_there, reason=reason)


HAS_MODES = os.name == "posix"

needs_links = needs(can_link(), "Windows refuses symbolic links to users without the privilege, and here to this one")
needs_modes = needs(HAS_MODES, "files of Windows have no mode that keeps others out")
needs_owners = needs(hasattr(os, "getuid"), "Windows has no os.getuid, so nobody is asked who owns a file")
needs_fifo = needs(hasattr(os, "mkfifo"), "Windows has no FIFO in its file system")
needs_fork = needs(hasattr(os, "fork"), "Windows cannot fork")
needs_so = needs(HAS_MODES, 'the copies that are loaded end in ".so", which Windows does not import')
