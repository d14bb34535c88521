"""Runs something in a process of its own, which may crash or hang."""

import faulthandler
import os
import pickle
import re
import signal
import sys
import tempfile

STUCK = 60  # seconds
CRASH = tempfile.TemporaryFile("w+")  # noqa: SIM115 for the whole run


def in_child(body):
    """What the body returns in a process of its own, or, as text, how and where that ended."""
    reader, writer = os.pipe()
    if (child := os.fork()) == 0:
        signal.alarm(STUCK)
        sys.stdout = sys.stderr = None
        faulthandler.enable(CRASH)
        try:
            with open(writer, "wb") as pipe:
                pickle.dump(body(), pipe)
            os._exit(0)
        finally:
            os._exit(1)
    os.close(writer)
    with open(reader, "rb") as pipe:
        answer = pipe.read()
    status = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
    return pickle.loads(answer) if status == 0 else f"{status} in {innermost_frame()}"


def innermost_frame():
    """Where Python code was when the process crashed."""
    CRASH.seek(0)
    path, function = re.search(r'File "(.*)", line .* in (.*)|$', CRASH.read()).groups()
    CRASH.seek(CRASH.truncate(0))
    return f"{path}: {function}"
