"""The desktop window app: its search path, its environment, and its single instance."""

import pathlib
import signal
import subprocess
import sys

import pytest

from support.control_api import ControlApi, Window
from support.desktop_services import APPLICATION
from support.session_bus import Watcher
from support.tray import command_line, descendants, eventually, is_alive

IDLE = "#!/bin/sh\nexec sleep 1000\n"
BUILDS = "packages/desktop/src-tauri/target"

# Stores its working directory, arguments and environment, and keeps running.
WINDOW = """#!/bin/sh
{{ pwd; echo $#; }} >'{record}.place'
umask 077
env -0 >'{record}.new'
mv '{record}.new' '{record}'
exec sleep 4321
"""


@pytest.fixture(name="record")
def fixture_record(world):
    return world.root / "window-environment"


@pytest.fixture
def add_window(world, record):
    """Adds a window at a path of the source tree."""
    def add(path):
        program = pathlib.Path(world.environment["ZEPHYL_REPO_ROOT"]) / path
        program.parent.mkdir(parents=True, exist_ok=True)
        program.write_text(WINDOW.format(record=record))
        program.chmod(0o755)
        return program
    return add


@pytest.fixture(autouse=True)
def source_tree(world):
    """A source tree whose name needs quoting, and an agent that does nothing."""
    root = world.root / "it's $HOME \"here\""
    root.mkdir()
    world.environment["ZEPHYL_REPO_ROOT"] = str(root)
    world.use_agent_script(IDLE)
    return root


@pytest.fixture
def item(bus, start_tray):
    """Starts a tray and returns its status item."""
    watcher = Watcher(bus.peer())

    def start():
        tray = start_tray("--desktop")
        return tray, watcher.item()
    return start


def windows(tray):
    return [pid for pid in descendants(tray.pid) if command_line(pid).startswith("sleep 4321")]


def environment(record):
    text = eventually(lambda: record.exists() and record.read_bytes(), what="a window")
    return dict(entry.split("=", 1) for entry in text.decode().split("\0") if entry)


def place(record):
    return pathlib.Path(f"{record}.place").read_text().splitlines()


def choose(item, label, token=None):
    if token:
        item.do("ProvideXdgActivationToken", "(s)", token)
    item.event(item.find(label), "clicked")


def end(window, record):
    """Ends a window, and removes what it has recorded."""
    record.unlink()
    subprocess.run(["kill", str(window)], check=True)
    eventually(lambda: not is_alive(window))


def activation_token(pid):
    variables = pathlib.Path(f"/proc/{pid}/environ").read_bytes().decode().split("\0")
    environment = dict(entry.split("=", 1) for entry in variables if entry)
    token = environment.get("XDG_ACTIVATION_TOKEN")
    assert environment.get("DESKTOP_STARTUP_ID") == token
    return token


# The started program


def test_a_developers_build_is_started_without_arguments(world, start_tray, add_window, record):
    add_window(f"{BUILDS}/release/zephyl-desktop")
    add_window(f"{BUILDS}/debug/zephyl-desktop").write_text(IDLE)
    world.environment["SOMETHING_ELSE"] = "kept"
    tray = start_tray()
    found = environment(record)
    assert place(record)[1] == "0"
    assert (found["ZEPHYL_ONBOARD_PORT"], found["ZEPHYL_ONBOARD"]) == (str(world.control_port), "1")
    assert found["SOMETHING_ELSE"] == "kept"
    assert found["HOME"] == world.environment["HOME"]
    assert ControlApi(world.control_port, found["ZEPHYL_ONBOARD_TOKEN"]).get("/servers") == {"servers": []}
    eventually(lambda: len(windows(tray)) == 1, what="the window's program")


def test_a_packaged_app_is_preferred(world, start_tray, add_window, record):
    add_window(f"{BUILDS}/release/zephyl-desktop").write_text(f"#!/bin/sh\ntouch '{record}.wrong'\n")
    window = Window(world)
    start_tray()
    assert window.environment()["ZEPHYL_ONBOARD_TOKEN"]
    assert not pathlib.Path(f"{record}.wrong").exists()


def test_a_packaged_directory_contains_its_program(world, start_tray, record):
    app = world.resources / "Zephyl Window.app"
    app.mkdir()
    (app / "AppRun").write_text(WINDOW.format(record=record))
    (app / "AppRun").chmod(0o755)
    start_tray()
    assert environment(record)["ZEPHYL_ONBOARD_PORT"] == str(world.control_port)


def test_without_an_app_a_command_runs_in_the_source_tree(world, start_tray, add_window, record, source_tree):
    add_window("window")
    world.environment["ZEPHYL_DESKTOP_LAUNCH_CMD"] = "exec ./window one 'and two'"
    start_tray()
    assert environment(record)["ZEPHYL_ONBOARD_TOKEN"]
    assert place(record) == [str(source_tree), "2"]


def test_an_app_that_cannot_be_started_is_logged(world, start_tray, add_window, record):
    add_window(f"{BUILDS}/release/zephyl-desktop")
    app = world.resources / "Zephyl Window.app"
    app.write_text("no program")
    tray = start_tray()
    tray.log_line(f"[tray] failed to launch Zephyl Window.app: {app}: Permission denied")
    assert tray.stop() == 0
    assert not record.exists(), "nothing else is tried"


# Single instance


def test_a_window_is_started_again_only_after_it_has_ended(item, world, add_window, record):
    world.use_sandbox_tailnet()
    add_window(f"{BUILDS}/release/zephyl-desktop")
    tray, status_item = item()
    api = ControlApi(world.control_port, environment(record)["ZEPHYL_ONBOARD_TOKEN"])
    first, = eventually(lambda: windows(tray))
    choose(status_item, "Open Zephyl")
    choose(status_item, "Join the Zephyl tailnet…")
    eventually(lambda: api.get("/status").get("request") == "join")
    assert windows(tray) == [first]
    end(first, record)
    eventually(lambda: choose(status_item, "Open Zephyl") or windows(tray), what="another window")
    second, = windows(tray)
    assert second != first
    assert environment(record)["ZEPHYL_ONBOARD_TOKEN"] == api.token, "the token is that of the run"
    assert tray.stop() == 0
    assert not is_alive(second)


def test_a_window_that_is_started_gets_the_token_of_the_request(item, start_tray, world, add_window,
                                                                record):
    add_window(f"{BUILDS}/release/zephyl-desktop")
    world.environment["XDG_ACTIVATION_TOKEN"] = "token-of-start"
    tray, status_item = item()
    first, = eventually(lambda: windows(tray))
    assert activation_token(first) == "token-of-start"
    end(first, record)
    eventually(lambda: choose(status_item, "Open Zephyl", "token-of-click") or windows(tray),
               what="a window that a click starts")
    second, = windows(tray)
    assert activation_token(second) == "token-of-click"
    end(second, record)
    world.environment["XDG_ACTIVATION_TOKEN"] = "token-of-second-start"
    eventually(lambda: start_tray("--desktop").wait() == 0 and windows(tray),
               what="a window that a second start of the tray starts")
    third, = windows(tray)
    assert activation_token(third) == "token-of-second-start"


def test_a_window_does_not_get_the_unused_token_of_another_request(item, start_tray, add_window, record):
    add_window(f"{BUILDS}/release/zephyl-desktop")
    tray, status_item = item()
    first, = eventually(lambda: windows(tray))
    assert activation_token(first) is None
    end(first, record)
    status_item.do("ProvideXdgActivationToken", "(s)", "token-of-a-closed-menu")
    eventually(lambda: start_tray("--desktop").wait() == 0 and windows(tray),
               what="a window that a second start of the tray starts")
    second, = windows(tray)
    assert activation_token(second) is None


def test_a_running_window_is_brought_to_the_front(item, bus, world, add_window, record):
    add_window(f"{BUILDS}/release/zephyl-desktop")
    running = subprocess.Popen([sys.executable, "-c", APPLICATION, bus.address, "com.zephyl.desktop"],
                               cwd=pathlib.Path(__file__).parent, stdout=subprocess.PIPE, text=True)
    try:
        assert running.stdout.readline() == "ready\n"
        tray, status_item = item()
        assert running.stdout.readline() == "activated {}\n"
        choose(status_item, "Open Zephyl")
        assert running.stdout.readline() == "activated {}\n"
        assert not record.exists() and windows(tray) == []
        assert tray.stop() == 0
        assert running.wait(10) == -signal.SIGTERM, "it ends with the tray"
    finally:
        running.kill()
        running.wait()
