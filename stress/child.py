"""Runs something in a process of its own, which may crash or hang."""

import faulthandler
import multiprocessing
import sys
from contextlib import suppress

STUCK = 120  # seconds, as other processes may hold this one up
fork = multiprocessing.get_context("fork")


def in_child(body, *arguments):
    """What the body returns in a process of its own, or the exit status of that."""

    def run():
        faulthandler.dump_traceback_later(STUCK, exit=True, file=sys.__stderr__)
        writer.send(body(*arguments))

    reader, writer = fork.Pipe(duplex=False)
    child = fork.Process(target=run)
    child.start()
    writer.close()
    answer = None
    with suppress(EOFError):
        answer = reader.recv()
    child.join()
    return child.exitcode or answer
