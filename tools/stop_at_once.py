"""A pytest plugin with which Ctrl-C ends the workers of pytest-xdist at once, not within ten seconds."""

from xdist.workermanage import NodeManager


def pytest_keyboard_interrupt() -> None:
    NodeManager.EXIT_TIMEOUT = 0
