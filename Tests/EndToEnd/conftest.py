import fcntl

import pytest

from support.dialogs import Screen, Window
from support.scripted_agent import ScriptedAgent
from support.session_bus import SessionBus
from support.tray import BUILD, Tray, World


def pytest_configure(config):
    config.addinivalue_line(
        "markers", "joins: the test joins a server, and must not run beside another one that does.")


@pytest.fixture(autouse=True)
def lock_of_joins(request):
    """Runs tests that join servers one at a time, because two trays could choose the same free
    ports."""
    if not request.node.get_closest_marker("joins"):
        yield
        return
    with (BUILD / "joins.lock").open("w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield


@pytest.fixture
def world():
    world = World()
    yield world
    world.remove()


@pytest.fixture
def start_tray(world):
    """Starts trays in the test's world, and ends them after the test."""
    trays = []

    def start(*arguments):
        trays.append(Tray(world, *arguments))
        return trays[-1]

    yield start
    for tray in trays:
        tray.close()


@pytest.fixture
def bus(world):
    """A private session bus for the trays in the test's world."""
    bus = SessionBus().start()
    world.environment["DBUS_SESSION_BUS_ADDRESS"] = bus.address
    yield bus
    bus.close()


@pytest.fixture
def scripted_agent(world):
    """An agent that runs before the tray starts. The test sets its answers."""
    agent = ScriptedAgent(world.agent_port)
    yield agent
    agent.close()


@pytest.fixture(scope="module")
def screen():
    """A screen with a window manager, which the tests of a file share."""
    screen = Screen()
    yield screen
    screen.close()


@pytest.fixture
def open_window(screen):
    """Starts windows of the dialogs program, and closes them after the test."""
    windows = []

    def start(environment=None, **request):
        windows.append(Window(screen, request, **(environment or {})))
        return windows[-1]

    yield start
    for window in windows:
        window.close()


@pytest.fixture
def show(open_window):
    """Starts windows of the dialogs program, and waits until they are shown."""
    return lambda *arguments, **request: open_window(*arguments, **request).shown()
