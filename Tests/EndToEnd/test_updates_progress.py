"""The progress of a download: in a window, in the terminal, and not at all if it was not requested."""

import json
import threading
import time

import pytest

from support.session_bus import Watcher
from support.terminal import Terminal
from support.tray import command_line, descendants, eventually
from support.updates import ARCHIVE, Publisher, set_up

# Shows nothing, records messages with their times, and answers like a user.
DIALOGS = """#!/usr/bin/python3
import json, sys, time
alert = json.loads(sys.stdin.readline())["alert"]
with open("{log}", "a") as log:
    def note(value):
        log.write(json.dumps({{"at": time.monotonic(), **value}}) + "\\n")
        log.flush()
    note({{"alert": alert}})
    print(json.dumps({{"shown": True}}), flush=True)
    if "Install Update" in alert["buttons"]:
        print(json.dumps({{"answer": {{"button": 0, "text": ""}}}}), flush=True)
        print(json.dumps({{"hidden": True}}), flush=True)
        sys.exit()
    for line in sys.stdin:
        order = json.loads(line)
        if "close" in order:
            break
        if "ping" in order:
            print(json.dumps({{"pong": order["ping"]}}), flush=True)
            continue
        note(order)
        if {dies}:
            sys.exit(3)
"""


class SlowArchive:
    """Serves an archive in pieces, the second half only when the test permits it."""

    def __init__(self, publisher, pieces=40, pause=0.02):
        self.contents = publisher.server.answers[ARCHIVE]
        self.pieces = pieces
        self.pause = pause
        self.may_go_on = threading.Event()
        self.lost = threading.Event()  # the client has disconnected
        self.ending = publisher.server.ending
        publisher.server.answers[ARCHIVE] = self

    def __call__(self, handler):
        try:
            self.send(handler)
        except ConnectionError:
            self.lost.set()

    def send(self, handler):
        handler.send_response(200)
        handler.send_header("Content-Length", str(len(self.contents)))
        handler.end_headers()
        size = -(-len(self.contents) // self.pieces)
        for number in range(self.pieces):
            handler.wfile.write(self.contents[number * size:(number + 1) * size])
            if number == self.pieces // 2 and not self.wait(handler.connection):
                return
            time.sleep(self.pause)  # simulates a slow connection

    def wait(self, connection):
        connection.settimeout(0.02)
        while not self.may_go_on.is_set():
            if self.ending.is_set():
                return False
            try:
                if connection.recv(1) == b"":
                    self.lost.set()
                    return False
            except TimeoutError:
                continue
        connection.settimeout(None)
        return True


@pytest.fixture
def publisher(world):
    publisher = Publisher(world)
    publisher.install("1.0")
    set_up(world, SULastCheckTime=str(int(time.time())))
    yield publisher
    publisher.close()


def use_dialogs(world, dies=False):
    log = world.root / "dialogs"
    program = world.prefix / "libexec" / "zephyl-tray" / "zephyl-tray-dialogs"
    program.write_text(DIALOGS.format(log=log, dies=dies))
    program.chmod(0o755)
    return lambda: [json.loads(line) for line in log.read_text().splitlines()] \
        if log.exists() else []


def ask_for_updates(watcher):
    item = watcher.item()
    item.event(item.find_enabled("Check for Updates…"), "clicked")


def updaters_of(pid):
    return [each for each in descendants(pid) if "zephyl-tray-updater" in command_line(each)]


def test_a_window_receives_progress_a_few_times_a_second(world, start_tray, publisher, bus):
    watcher = Watcher(bus.peer())
    shown = use_dialogs(world)
    publisher.publish(publisher.pack(publisher.copy("2.0")))
    slow = SlowArchive(publisher, pause=0.05)
    size = len(slow.contents)
    tray = start_tray("--desktop")
    begin = time.monotonic()
    ask_for_updates(watcher)
    of_all = f" of {-(-size // 100_000) / 10} MB"

    def progress():
        return [each for each in shown() if "progress" in each]

    # The last progress before a stall is sent, too.
    eventually(lambda: progress() and progress()[-1]["progress"].get("fraction", 0) > 0.5)
    slow.may_go_on.set()
    eventually(lambda: progress()[-1]["progress"]["text"] == "Verifying…")
    seconds = time.monotonic() - begin  # an upper bound, so that a loaded machine does not fail the test
    download, = [each["alert"] for each in shown()
                 if each.get("alert", {}).get("heading") == "Downloading Zephyl 2.0…"]
    assert download["buttons"] == ["Cancel"] and download["style"] == "information"
    assert download["progress"] == {"fraction": 0, "text": "0.0" + of_all}
    reports = progress()[:-1]
    fractions = [each["progress"]["fraction"] for each in reports]
    assert fractions == sorted(fractions) and fractions[0] < 0.5
    assert all(each["progress"]["text"].endswith(of_all) for each in reports)
    assert 4 <= len(reports) <= 4 * seconds + 2, (len(reports), seconds)
    tray.log_line("version 2.0 is confirmed")
    assert sum("downloading" in line for line in tray.lines) == 1
    assert tray.stop() == 0


def test_a_window_that_dies_cancels_only_the_download(world, start_tray, publisher,
                                                                bus):
    watcher = Watcher(bus.peer())
    use_dialogs(world, dies=True)
    publisher.publish(publisher.pack(publisher.copy("2.0")))
    slow = SlowArchive(publisher)
    tray = start_tray("--desktop")
    ask_for_updates(watcher)
    tray.log_line("zephyl-tray-dialogs lost its window: it ended with status 3")
    tray.log_line("the download of version 2.0 was cancelled")
    assert slow.lost.wait(10)
    eventually(lambda: not updaters_of(tray.pid), what="the updater's end")
    assert tray.process.poll() is None
    eventually(lambda: watcher.item().find("Check for Updates…"), what="another chance to ask")
    assert tray.stop() == 0


def test_a_terminal_shows_a_bar_and_cancels(world, publisher):
    world.use_sandbox_agent()
    publisher.publish(publisher.pack(publisher.copy("2.0")))
    slow = SlowArchive(publisher)
    terminal = Terminal(world, world.prefix / "bin" / "zephyl-tray", "--terminal")
    try:
        terminal.choose("Check for Updates…")
        terminal.see("A new version of Zephyl is available!", "you have 1.0")
        terminal.answer("Install Update")
        screen = terminal.see("Downloading Zephyl 2.0…", "█", "░", " MB", "[›Cancel ]")
        row = next(line for line in screen.split("\n") if "░" in line)
        assert f" of {-(-len(slow.contents) // 100_000) / 10} MB" in row
        eventually(lambda: terminal.screen().count("█") >= 20, what="half a bar")
        assert len(updaters_of(terminal.pid)) == 1
        terminal.answer("Cancel")
        terminal.miss("Downloading Zephyl 2.0…")
        assert slow.lost.wait(10)
        eventually(lambda: not updaters_of(terminal.pid), what="the updater's end")
        terminal.see("Check for Updates…", "Version 1.0")
        updates = world.prefix.parent / f".{world.prefix.name}.updates"
        assert [path.name for path in updates.iterdir()] == ["lock"], "nothing is left of it"
        # The second download completes.
        slow.may_go_on.set()
        terminal.choose("Check for Updates…")
        terminal.answer("Install Update")
        terminal.see("Version 2.0", limit=20)
        # Before that its end would count as a failure.
        eventually(lambda: not (updates / "trial.json").exists(), what="the end of the trial")
    finally:
        terminal.close()


def test_an_unrequested_download_opens_no_window(world, start_tray, publisher, bus):
    watcher = Watcher(bus.peer())
    shown = use_dialogs(world)
    set_up(world, SUScheduledCheckInterval=720, SUAutomaticallyUpdate=1)
    publisher.publish(publisher.pack(publisher.copy("2.0")))
    slow = SlowArchive(publisher)
    slow.may_go_on.set()
    tray = start_tray("--desktop")
    watcher.item()
    tray.log_line("version 2.0 is confirmed")
    assert shown() == []
    assert tray.stop() == 0


def test_without_a_desktop_beginning_and_end_are_logged(world, start_tray, publisher):
    set_up(world, SUScheduledCheckInterval=720, SUAutomaticallyUpdate=1)
    publisher.publish(publisher.pack(publisher.copy("2.0")))
    SlowArchive(publisher).may_go_on.set()
    tray = start_tray()
    tray.log_line("version 2.0 is confirmed")
    about = [line for line in tray.lines if "version 2.0" in line]
    assert about == [f"[tray] {line}" for line in (
        "version 2.0 is available", "downloading version 2.0",
        "version 2.0 is verified and ready to install", "installing version 2.0",
        "restarting as version 2.0", "version 2.0 is confirmed")]
    assert tray.stop() == 0
