"""Fixtures for tests of the status item."""

import pytest

from support.session_bus import SessionBus, Watcher
from support.status_item_demo import SAMPLE, Demo


@pytest.fixture
def bus():
    bus = SessionBus().start()
    yield bus
    bus.close()


@pytest.fixture
def watcher(bus):
    return Watcher(bus.peer())


@pytest.fixture
def start_demo(bus):
    """Starts status items, and ends them after the test."""
    demos = []

    def start(menu=SAMPLE, **environment):
        demos.append(Demo(bus.address, environment))
        if menu is not None:
            demos[-1].set_menu(menu)
        return demos[-1]

    yield start
    for demo in demos:
        demo.close()


@pytest.fixture
def demo(watcher, start_demo):
    demo = start_demo()
    watcher.item()
    return demo
