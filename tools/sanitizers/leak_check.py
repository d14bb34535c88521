"""A pytest plugin with which the process fails when LeakSanitizer finds memory that nothing points to."""

import atexit
import ctypes
import gc
import os
import sys


@atexit.register
def fail_after_leaks() -> None:
    """At the end, because LeakSanitizer does not see what Python frames that are still running point to."""
    gc.collect()
    sys.stdout.flush()
    if ctypes.CDLL(None).__lsan_do_recoverable_leak_check():
        os._exit(1)
