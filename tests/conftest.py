"""What the tests share: a home directory of their own, the module as it was imported, and a place for scenarios."""

import os
import tempfile
from pathlib import Path

import pytest

pytest.register_assert_rewrite("differential")


def pytest_configure(config):
    # Before the settings module looks where the default data directory is.
    home = tempfile.TemporaryDirectory()
    os.environ["HOME"] = home.name
    config.add_cleanup(home.cleanup)


def pytest_generate_tests(metafunc):
    if "scenario" in metafunc.fixturenames:
        metafunc.parametrize("scenario", metafunc.module.SCENARIOS, ids=lambda scenario: scenario.name)


@pytest.fixture
def directory():
    # Made anew for each run of a scenario: in memory, where there is such a place.
    with tempfile.TemporaryDirectory(dir="/dev/shm" if os.path.isdir("/dev/shm") else None) as parent:
        yield Path(parent, "stage")


@pytest.fixture
def module():
    from differential import native, restored

    with restored(native):
        yield native
