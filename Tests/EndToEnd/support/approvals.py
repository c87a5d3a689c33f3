"""A tray whose agent raises requests, on a screen with real windows."""

import json
import urllib.request

import pytest

from support.control_api import Window
from support.dialogs import PROGRAM
from support.session_bus import Watcher
from support.tray import command_name, descendants, eventually

PROMPT = "zephyl-tray-dialogs"


@pytest.fixture
def world(world, screen):
    """A world with the agent, the windows and a desktop."""
    world.install("desktop")
    world.dialogs = world.prefix / "libexec" / "zephyl-tray" / PROGRAM.name
    Window(world)
    wanted = ("DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "QT_LINUX_ACCESSIBILITY_ALWAYS_ON")
    world.environment.update({name: screen.environment[name] for name in wanted})
    return world


class Agent:
    """Makes the sandbox's agent raise requests."""

    def __init__(self, port):
        self.base = f"http://127.0.0.1:{port}"

    def call(self, method, path, body=None):
        request = urllib.request.Request(self.base + path, method=method,
                                         data=json.dumps(body).encode() if body else None)
        with urllib.request.urlopen(request, timeout=10) as answer:
            return json.loads(answer.read())

    def raise_request(self, target):
        return self.call("POST", "/sandbox/requests", {"kind": "shell", "target": target})["id"]

    def state(self, identifier):
        return self.call("GET", f"/sandbox/requests/{identifier}")["state"]

    def grants(self):
        return [grant["path"] for grant in self.call("GET", "/api/activity")["escapeGrants"]]


@pytest.fixture
def watcher(screen):
    watcher = Watcher(screen.bus.peer())
    yield watcher
    watcher.peer.release("org.kde.StatusNotifierWatcher")


@pytest.fixture
def tray(world, start_tray):
    world.use_sandbox_agent()
    tray = start_tray("--desktop")
    eventually(lambda: "zephyl-agent" in map(command_name, descendants(tray.pid)))
    eventually(lambda: reachable(world), what="a reachable agent")
    return tray


def reachable(world):
    try:
        return Agent(world.agent_port).call("GET", "/api/status")
    except OSError:
        return None


@pytest.fixture
def agent(world, tray):
    return Agent(world.agent_port)


def windows(tray):
    # The kernel keeps fifteen characters of a name. Before its exec a child has the name of the tray.
    return [pid for pid in descendants(tray.pid) if command_name(pid) == PROMPT[:15]]


class Prompt:
    """The window on screen, once it has the focus and accepts input. The user activates an
    unrequested window."""

    def __init__(self, screen, tray, other_than=(), requested=False):
        self.screen = screen
        self.pid = eventually(lambda: next(
            (pid for pid in windows(tray) if pid not in other_than), None), what="a window")
        if not requested:
            screen.activate(self.pid)
        eventually(self._has_focus, what="the focus")
        screen.accepting(self.pid)

    def _has_focus(self):
        return self.screen.active_process() == self.pid

    def press(self, *keys):
        self.screen.press(*keys)
