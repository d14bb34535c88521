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


def answers_of_child(bodies):
    """What the bodies return in a process of their own, up to the first that returns something or ends the process; the
    last answer is the exit status then."""
    reader, writer = os.pipe()
    if (child := os.fork()) == 0:
        sys.stdout = sys.stderr = None
        CRASH.seek(CRASH.truncate(0))
        faulthandler.enable(CRASH)
        try:
            with open(writer, "wb", buffering=0) as pipe:
                for body in bodies:
                    signal.alarm(STUCK)
                    pickle.dump(answer := body(), pipe)
                    if answer:
                        break
            os._exit(0)
        finally:
            os._exit(1)
    os.close(writer)
    answers = []
    with open(reader, "rb") as pipe:
        while pipe.peek(1):
            answers.append(pickle.load(pipe))
    status = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
    return [*answers, status] if status else answers


def in_child(body, *arguments):
    return answers_of_child([lambda: body(*arguments)])[0]


def crashed_in_library():
    """Whether the last process was executing Python code of the standard library when it crashed."""
    CRASH.seek(0)
    innermost = re.search('File "(.*?)"', CRASH.read())
    return innermost and innermost[1].startswith(("<frozen", os.path.dirname(os.__file__)))
