"""The tray updates itself: it finds a version, waits for the agent, and continues as the new one."""

import json
import os
import pathlib
import signal
import threading
import time
import urllib.request

import pytest

from support.desktop_services import NotificationServer
from support.session_bus import Watcher, outline
from support.tray import command_name, descendants, eventually, is_alive
from support.updates import ARCHIVE, FEED, Publisher, set_up

CRASHES = '#!/bin/sh\n[ "$1" = --version ] && exec echo zephyl-tray 2.0\nexit 3\n'

# Shows nothing, records requests, and installs every offered update.
DIALOGS = """#!/usr/bin/python3
import json, sys
alert = json.loads(sys.stdin.readline())["alert"]
with open("{log}", "a") as log:
    log.write(json.dumps(alert) + "\\n")
print(json.dumps({{"shown": True}}), flush=True)
if "Install Update" in alert["buttons"]:
    button = alert["buttons"].index("Install Update")
    print(json.dumps({{"answer": {{"button": button, "text": ""}}}}), flush=True)
    print(json.dumps({{"hidden": True}}), flush=True)
    sys.exit()
for line in sys.stdin:
    order = json.loads(line)
    if "close" in order:
        break
    if "ping" in order:
        print(json.dumps({{"pong": order["ping"]}}), flush=True)
"""


@pytest.fixture
def publisher(world):
    publisher = Publisher(world)
    publisher.install("1.0")
    yield publisher
    publisher.close()
    for pid in trays_of(world):
        os.kill(pid, signal.SIGTERM)
        eventually(lambda pid=pid: not is_alive(pid), 15)


def settings_path(world):
    return world.home / ".config" / "com.zephyl.tray" / "defaults.json"


def be_busy(world, busy):
    """Makes the agent busy or idle. Returns whether an agent was running."""
    request = urllib.request.Request(
        f"http://127.0.0.1:{world.agent_port}/sandbox/activity", method="POST",
        data=json.dumps({"busy": busy, "seconds": 60}).encode(),
        headers={"Content-Type": "application/json"})
    try:
        urllib.request.urlopen(request, timeout=5).read()
    except OSError:
        return False
    return True


def command_line(pid):
    try:
        return pathlib.Path(f"/proc/{pid}/cmdline").read_bytes().decode().split("\0")[:-1]
    except (FileNotFoundError, ProcessLookupError):
        return []


def labels(watcher):
    return outline(watcher.item(len(watcher.items)).layout())


def until_menu(watcher, text, limit=15):
    """Waits until the newest status item has a row with this text."""
    def shown():
        try:
            return any(text in row for row in labels(watcher) if isinstance(row, str))
        except Exception:  # the item disappears while the tray restarts
            return False
    eventually(shown, limit, f"a row {text!r}")


def test_it_waits_for_the_agent_and_continues_as_the_new_version(world, start_tray, publisher, bus):
    watcher = Watcher(bus.peer())
    notifications = NotificationServer(bus.peer())
    world.use_sandbox_agent()
    world.add_servers(1)
    registry = world.registry()
    set_up(world, SUScheduledCheckInterval=720, SUAutomaticallyUpdate=1, mark="kept")
    publisher.publish(publisher.pack(publisher.copy("2.0")))
    feed = publisher.server.answers[FEED]
    busy = threading.Event()
    publisher.server.answers[FEED] = lambda handler: busy.wait(20) and handler.reply(200, feed)
    tray = start_tray("--desktop")
    eventually(lambda: be_busy(world, True), what="an agent that is busy")
    eventually(lambda: "busy" in watcher.item().get("IconName"), what="the busy icon")
    busy.set()

    tray.log_line("[tray] version 2.0 is available")
    eventually(lambda: any(each["title"] == "Zephyl update available" and
                           each["body"] == "Version 2.0 is ready to install."
                           for each in notifications.posted))
    until_menu(watcher, "Update ready — restarts when the agent is idle")
    assert "Version 1.0" in labels(watcher)
    old_agent = tray.agent_pid()
    assert not any("restarting" in line for line in tray.lines)

    assert be_busy(world, False)
    tray.log_line("restarting as version 2.0")
    tray.log_line("version 2.0 is confirmed")
    until_menu(watcher, "Version 2.0")
    assert tray.process.poll() is None
    program = str(world.prefix / "bin" / "zephyl-tray")
    assert command_line(tray.pid) == [program, "--desktop"], "the same process, with its arguments"
    assert not is_alive(old_agent)
    assert eventually(lambda: be_busy(world, False), what="an agent of its own")
    assert world.registry() == registry
    assert json.loads(settings_path(world).read_text())["mark"] == "kept"
    eventually(lambda: not any("zephyl-tray-updater" in " ".join(command_line(pid))
                               for pid in descendants(tray.pid)), what="the updater's end")
    assert tray.stop() == 0


def test_a_requested_check_shows_and_installs_an_update(world, start_tray, publisher, bus):
    watcher = Watcher(bus.peer())
    shown = world.root / "shown"
    dialogs = world.prefix / "libexec" / "zephyl-tray" / "zephyl-tray-dialogs"
    dialogs.write_text(DIALOGS.format(log=shown))
    dialogs.chmod(0o755)
    set_up(world, SULastCheckTime=str(int(time.time())))
    publisher.publish(publisher.pack(publisher.copy("2.0")), change=lambda item: item.replace(
        "<description></description>", "<description>Calmer.</description>"))
    tray = start_tray("--desktop")
    until_menu(watcher, "Check for Updates…")
    assert publisher.server.requests == []
    item = watcher.item()
    item.event(item.find_enabled("Check for Updates…"), "clicked")
    tray.log_line("version 2.0 is confirmed")
    until_menu(watcher, "Version 2.0")
    found, *rest = [json.loads(line) for line in shown.read_text().splitlines()]
    assert found["heading"] == "A new version of Zephyl is available!"
    assert "you have 1.0" in found["explanation"] and "Calmer." in found["explanation"]
    assert [each["heading"] for each in rest if "Zephyl 2.0" in each["heading"]] == [
        "Downloading Zephyl 2.0…"]
    assert tray.stop() == 0


def test_a_version_that_does_not_start_is_rolled_back(world, start_tray, publisher):
    world.use_sandbox_agent()
    set_up(world, SUScheduledCheckInterval=720, SUAutomaticallyUpdate=1)
    publisher.publish(publisher.pack(publisher.copy("2.0", program=CRASHES)))
    tray = start_tray()
    tray.log_line("restarting as version 2.0")
    assert tray.process.wait(15) == 3
    line = "version 2.0 failed to start; version 1.0 was restored"
    eventually(lambda: any(line in each for each in tray.lines), 15)
    # A forked child looks like its parent before its exec.
    eventually(lambda: len(trays_of(world)) == 1, what="one tray")
    back, = trays_of(world)
    try:
        assert command_line(back)[1:] == ["--headless"]
        eventually(lambda: any("reachable, 1 folder" in each for each in
                               tray.lines[index_of(tray.lines, line):]), 15)
    finally:
        os.kill(back, signal.SIGTERM)
        eventually(lambda: not is_alive(back), 15)
    assert publisher.server.requests == [FEED, ARCHIVE]

    # It is not retried automatically.
    set_up(world, SUScheduledCheckInterval=720, SUAutomaticallyUpdate=1)
    again = start_tray()
    eventually(lambda: "SULastCheckTime" in settings_path(world).read_text())
    assert again.stop() == 0
    assert publisher.server.requests == [FEED, ARCHIVE, FEED]
    assert not any("available" in each or "failed to start" in each for each in again.lines)


def index_of(lines, text):
    return next(number for number, line in enumerate(lines) if text in line)


def trays_of(world):
    program = str(world.prefix / "bin" / "zephyl-tray")
    pids = [int(entry.name) for entry in pathlib.Path("/proc").iterdir() if entry.name.isdigit()]
    return [pid for pid in pids if command_line(pid)[:1] == [program] and
            command_name(pid) == "zephyl-tray" and is_alive(pid)]


def test_nothing_is_contacted_without_a_feed_and_a_key(world, start_tray, publisher,
                                                      scripted_agent):
    publisher.publish(publisher.pack(publisher.copy("2.0", program=CRASHES)))
    information = world.resources / "Info.json"
    values = json.loads(information.read_text())
    set_up(world, SUScheduledCheckInterval=1)
    for missing in ({"SUPublicEDKey": ""}, {"SUPublicEDKey": [""]}, {"SUFeedURL": ""}):
        information.write_text(json.dumps({**values, **missing}))
        tray = start_tray()
        scripted_agent.requests.clear()
        eventually(lambda: scripted_agent.count("/api/status") == 2, what="two polls, 2 s apart")
        tray.stop()
    assert publisher.server.requests == []
    information.write_text(json.dumps({**values, "SUPublicEDKey": [values["SUPublicEDKey"]]}))
    tray = start_tray()
    tray.log_line("version 2.0 is available")
    tray.stop()
