"""A pytest plugin that fails the session when LeakSanitizer finds memory that nothing points to."""

import ctypes
import gc

import pytest


@pytest.hookimpl(trylast=True)
def pytest_sessionfinish(session: pytest.Session) -> None:
    gc.collect()
    if ctypes.CDLL(None).__lsan_do_recoverable_leak_check():
        session.exitstatus = pytest.ExitCode.TESTS_FAILED
