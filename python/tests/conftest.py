# Shared fixtures of the zvstats suite: every test must leave the host with
# no array and no scratch block alive, whatever path the call took.
import gc

import pytest

import zvstats


@pytest.fixture(autouse=True)
def no_leaks():
    before = zvstats.usage()
    yield
    if zvstats.usage() != before:
        gc.collect()  # arrays held by reference cycles (tracebacks) go here
    assert zvstats.usage() == before


@pytest.fixture
def registered():
    """Registers host functions for one test and removes them afterwards."""
    names = []

    def register(name, fn):
        zvstats.register(name, fn)
        names.append(name)

    yield register
    for name in names:
        zvstats.unregister(name)
