"""What the tests share: where they run, the module that they are about, and which rendering it is."""

import pytest
from support.subject import restored, use_plain


def pytest_addoption(parser):
    parser.addoption("--plain", action="store_true", help="test the plain rendering, benchmarks/plain, instead")


def pytest_configure(config):
    if config.option.plain:
        use_plain()


@pytest.fixture
def module():
    from sablecrest import agent_onboarding

    with restored(agent_onboarding):
        yield agent_onboarding
