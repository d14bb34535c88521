"""Runs something in a process of its own, which may crash or hang."""

import faulthandler
import os
import pickle
import re
import signal
import sys
import tempfile

STUCK = 20  # seconds
CRASH = tempfile.TemporaryFile("w+")  # noqa: SIM115 what the last process was doing when it crashed


def in_child(body, *arguments):
    """What the body returns in a process of its own, or the exit status of that."""
    reader, writer = os.pipe()
    if (child := os.fork()) == 0:
        sys.stdout = sys.stderr = None
        CRASH.seek(CRASH.truncate(0))
        faulthandler.enable(CRASH)
        signal.alarm(STUCK)
        try:
            with open(writer, "wb") as pipe:
                pickle.dump(body(*arguments), pipe)
            os._exit(0)
        finally:
            os._exit(1)
    os.close(writer)
    with open(reader, "rb") as pipe:
        answer = pipe.read()
    status = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
    return status or pickle.loads(answer)


def crashed_in_library():
    """Whether the last process was executing Python code of the standard library when it crashed."""
    CRASH.seek(0)
    innermost = re.search('File "(.*?)"', CRASH.read())
    return innermost and innermost[1].startswith(("<frozen", os.path.dirname(os.__file__)))
