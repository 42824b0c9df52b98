"""Gives every test a desk of its own, with the plugin that the command line names."""

import shlex

import pytest

from desk import Desk


def pytest_addoption(parser):
    parser.addoption("--plugin", help="command that starts the plugin", default="./plugin")
    parser.addoption("--pelmsim", help="command that starts the simulator", default="pelmsim")


@pytest.fixture
def desk(request):
    words = [shlex.split(request.config.getoption(name)) for name in ("plugin", "pelmsim")]
    made = Desk(*words)
    yield made
    made.close()
