import pytest

from support.scripted_agent import ScriptedAgent
from support.session_bus import SessionBus
from support.tray import Tray, World


@pytest.fixture
def world():
    world = World()
    yield world
    world.remove()


@pytest.fixture
def start_tray(world):
    """Starts a tray in the test's world; at the end of the test nothing of it is left."""
    trays = []

    def start(*arguments):
        trays.append(Tray(world, *arguments))
        return trays[-1]

    yield start
    for tray in trays:
        tray.close()


@pytest.fixture
def bus(world):
    """A session bus of the test's own, which trays in its world find."""
    bus = SessionBus().start()
    world.environment["DBUS_SESSION_BUS_ADDRESS"] = bus.address
    yield bus
    bus.close()


@pytest.fixture
def scripted_agent(world):
    """An agent that answers before the tray starts, and misbehaves as told."""
    agent = ScriptedAgent(world.agent_port)
    yield agent
    agent.close()
