"""The tray on a desktop: its menu, the actions of its rows, and a second start."""

import json
import subprocess
import threading
import time

import pytest

from support.control_api import ControlApi, Window
from support.scripted_agent import HEALTHY_ACTIVITY
from support.session_bus import Watcher, outline
from support.tray import World, eventually

NAME = "com.zephyl.tray"


@pytest.fixture
def watcher(bus):
    return Watcher(bus.peer())


@pytest.fixture
def window(world):
    return Window(world)


@pytest.fixture
def api(world, window):
    """Starts a tray and returns its control API."""
    return lambda: ControlApi(world.control_port, window.token)


def start_again(world, *arguments, **environment):
    return subprocess.run([world.prefix / "bin" / "zephyl-tray", *arguments],
                          env=world.environment | environment, capture_output=True, text=True,
                          timeout=10)


def labels(item):
    return outline(item.layout())


def choose(item, label):
    item.event(item.find(label), "clicked")


def until(item, condition):
    """Waits until the menu meets a condition, and returns its labels."""
    def shown():
        now = labels(item)
        return now if condition(now) else None
    return eventually(shown, what="the menu")


# The menu and its actions

def test_without_servers_the_menu_offers_to_join(world, start_tray, watcher, window, api):
    world.use_sandbox_agent()
    world.use_sandbox_tailnet()
    start_tray("--desktop")
    item = watcher.item()
    assert until(item, lambda now: "Join the Zephyl tailnet…" in now) == [
        "Open Zephyl", "---", "Join the Zephyl tailnet…", "---", "Quit Zephyl"]
    choose(item, "Join the Zephyl tailnet…")
    eventually(lambda: api().get("/status").get("request") == "join")


def test_the_menu_follows_the_servers(world, start_tray, watcher, window, api):
    world.use_sandbox_agent()
    world.use_sandbox_tailnet()
    one, _ = world.add_servers(2)
    start_tray("--desktop")
    item = watcher.item()
    until(item, lambda now: any("Connected" in part and "1 folder shared" in part
                                for part in now if isinstance(part, list)))
    api().do("POST", f"/servers/{one}/label", {"label": "Lab_1"})
    until(item, lambda now: "Lab__1" in now)
    api().do("POST", f"/servers/{one}/enabled", {"enabled": False})
    now = until(item, lambda now: any("Disabled" in part for part in now if isinstance(part, list)))
    assert "Connect" in now[now.index("Lab__1") + 1]
    choose(item, "Connect")
    eventually(lambda: api().server(one)["enabled"])


@pytest.mark.parametrize("label, request_of", [
    ("Rename…", "servers/{}/rename"), ("Remove Server…", "servers/{}/remove")])
def test_rows_open_the_screens_of_the_desktop_window(world, start_tray, watcher, window, api,
                                                        label, request_of):
    world.use_sandbox_agent()
    world.use_sandbox_tailnet()
    identifier, = world.add_servers(1)
    start_tray("--desktop")
    item = watcher.item()
    until(item, lambda now: "Server 1" in now)
    choose(item, label)
    eventually(lambda: api().get("/status").get("request") == request_of.format(identifier))


def test_a_servers_page_opens_in_the_browser(world, start_tray, watcher, window):
    world.use_sandbox_agent()
    world.use_sandbox_tailnet()
    world.add_servers(1)
    browser = world.root / "bin" / "xdg-open"
    browser.parent.mkdir()
    browser.write_text(f"#!/bin/sh\necho \"$@\" >> {world.root}/opened\n")
    browser.chmod(0o755)
    world.environment["PATH"] = f"{browser.parent}:{world.environment['PATH']}"
    start_tray("--desktop")
    item = watcher.item()

    def row():
        return next((label for part in labels(item) if isinstance(part, list)
                     for label in part if label.startswith("Open in Browser")), None)
    label = eventually(row, what="a row that opens the page")
    choose(item, label)
    opened = world.root / "opened"
    eventually(lambda: opened.exists() and opened.read_text())
    assert f"Open in Browser  ({opened.read_text().strip().removeprefix('http://')})" == label


def test_quit_ends_the_tray(world, start_tray, watcher, window):
    tray = start_tray("--desktop")
    item = watcher.item()
    choose(item, "Quit Zephyl")
    assert tray.wait() == 0


def test_the_item_shows_that_the_agent_is_busy(world, start_tray, watcher, window, scripted_agent):
    activity = dict(HEALTHY_ACTIVITY, busy=True)
    scripted_agent.answers["/api/activity"] = json.dumps(activity).encode()
    roots = [{"root": f"/{name}", "name": name} for name in "abc"]
    scripted_agent.answers["/api/roots"] = json.dumps({"roots": roots}).encode()
    start_tray("--desktop")
    item = watcher.item()
    eventually(lambda: "busy" in item.get("IconName"))
    assert item.get("XAyatanaLabel") == " 3"
    assert item.get("Title") == "Zephyl: reachable, 3 folders"


def test_a_poll_without_changes_sends_nothing(world, start_tray, watcher, window,
                                                  scripted_agent):
    world.add_servers(3)
    start_tray("--desktop")
    item = watcher.item()
    labels(item)  # only a host that has read the menu gets its signals
    eventually(lambda: scripted_agent.count("/api/activity") >= 3)
    before = len(item.signals())
    polls = scripted_agent.count("/api/activity")
    eventually(lambda: scripted_agent.count("/api/activity") >= polls + 2)
    assert len(item.signals()) == before


def stream(agent, per_second, stopping):
    """Makes the agent send so many events a second."""
    def serve(handler):
        handler.send_response(200)
        handler.end_headers()
        number, begin = 0, time.monotonic()
        while not stopping.is_set():
            number += 1
            progress = {"root": "/r", "ready": False, "embedding": True, "filesEmbedded": number,
                        "chunksEmbedded": number, "lexicalFiles": 1000000, "ragEnabled": True}
            activity = dict(HEALTHY_ACTIVITY, busy=number % 2 == 0, indexing=[progress])
            handler.wfile.write(f"data: {json.dumps(activity)}\n\n".encode())
            stopping.wait(max(0, begin + number / per_second - time.monotonic()))
    agent.answers["/api/events"] = serve


def test_a_flood_of_activity_sends_few_signals(world, start_tray, watcher, window,
                                                     scripted_agent):
    stopping = threading.Event()
    stream(scripted_agent, 1000, stopping)
    world.add_servers(10)
    tray = start_tray("--desktop")
    item = watcher.item()
    eventually(lambda: "indexing" in item.get("Title"))
    labels(item)  # only a host that has read the menu gets its signals
    first = len(item.signals())
    eventually(lambda: len(item.signals()) >= first + 12, 20, "a dozen signals")
    stopping.set()
    times = [signal.time for signal in item.signals()[first:]]
    assert all(later - earlier > 0.95 for earlier, later in zip(times, times[4:])), times
    assert tray.stop() == 0


# A second start

def test_a_second_start_activates_the_first(world, start_tray, watcher, window, api):
    first = start_tray("--desktop")
    watcher.item()
    eventually(lambda: has_name(watcher.peer))
    second = start_again(world)
    assert (second.returncode, second.stderr) == (
        0, f"[tray] already running as process {first.pid}; asked it to show itself\n")
    eventually(lambda: api().get("/status").get("request") == "join")
    assert first.process.poll() is None


def has_name(peer):
    return NAME in peer.call("org.freedesktop.DBus", "/org/freedesktop/DBus",
                             "org.freedesktop.DBus", "ListNames")[0]


@pytest.mark.parametrize("first_mode, address", [("--headless", None), ("--desktop", "unix:path=/nowhere")],
                         ids=["the first has no name", "the second has no bus"])
def test_a_second_start_that_cannot_activate_the_first_reports_that(
        world, start_tray, bus, window, first_mode, address):
    first = start_tray(first_mode)
    eventually(lambda: (world.base / "tray.lock").exists())
    if first_mode == "--desktop":
        eventually(lambda: has_name(bus.peer()))
    environment = {} if address is None else {"DBUS_SESSION_BUS_ADDRESS": address}
    second = start_again(world, **environment)
    assert (second.returncode, second.stderr) == (
        1, f"[tray] already running as process {first.pid}\n")


def test_a_tray_of_another_base_directory_runs_without_the_name(world, start_tray, watcher,
                                                                window):
    start_tray("--desktop")
    watcher.item()
    eventually(lambda: has_name(watcher.peer))
    other = World()
    other.environment["DBUS_SESSION_BUS_ADDRESS"] = world.environment["DBUS_SESSION_BUS_ADDRESS"]
    Window(other)
    process = subprocess.Popen([other.prefix / "bin" / "zephyl-tray"], env=other.environment,
                               stderr=subprocess.DEVNULL)
    try:
        item = watcher.item(2)
        assert "Quit Zephyl" in labels(item)
    finally:
        process.terminate()
        assert process.wait(10) == 0
        other.remove()
