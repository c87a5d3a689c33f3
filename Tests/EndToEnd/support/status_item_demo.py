"""Runs the status item without a tray."""

import json
import os
import pathlib
import subprocess
import threading

from support.tray import BUILD, eventually

GREY, GREEN, ORANGE, RED = range(4)

SAMPLE = [
    {"key": "open", "title": "Open Zephyl", "letter": "o", "action": "openDesktopWindow"},
    {"key": "-1", "separator": True},
    {"key": "a", "title": "Lab_1", "dot": GREEN, "submenu": [
        {"key": "state", "title": "Connected", "enabled": False},
        {"key": "folders", "title": "2 folders shared", "enabled": False},
        {"key": "-", "separator": True},
        {"key": "rename", "title": "Rename…", "action": "renameServer", "object": "a"}]},
    {"key": "b", "title": "Office & <Home>", "dot": RED, "submenu": [
        {"key": "state", "title": "Disconnected", "enabled": False},
        {"key": "more", "title": "More", "submenu": [
            {"key": "deep", "title": "Deep down", "action": "deep", "object": "b"}]}]},
    {"key": "model", "title": "Preparing embeddings model…", "dot": ORANGE, "enabled": False},
    {"key": "-2", "separator": True},
    {"key": "quit", "title": "Quit Zephyl", "letter": "q", "action": "quit"},
]

OUTLINE = ["Open Zephyl", "---", "Lab__1", ["Connected", "2 folders shared", "---", "Rename…"],
           "Office & <Home>", ["Disconnected", "More", ["Deep down"]],
           "Preparing embeddings model…", "---", "Quit Zephyl"]


class Demo:
    def __init__(self, address, environment=None):
        self.events = []
        self.lines = []
        self.process = subprocess.Popen(
            [BUILD / "status-item-demo"], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            stderr=subprocess.PIPE, text=True,
            env={**os.environ, "DBUS_SESSION_BUS_ADDRESS": address, "XDG_DATA_DIRS": "/nonexistent",
                 "XDG_DATA_HOME": "/nonexistent", **(environment or {})})
        self.pid = self.process.pid
        self._readers = [threading.Thread(target=self._read_events),
                         threading.Thread(target=self._read_lines)]
        for reader in self._readers:
            reader.start()

    def _read_events(self):
        for line in self.process.stdout:
            self.events.append(json.loads(line))

    def _read_lines(self):
        for line in self.process.stderr:
            self.lines.append(line.rstrip("\n"))

    def do(self, what, **arguments):
        self.process.stdin.write(json.dumps({"do": what, **arguments}) + "\n")
        self.process.stdin.flush()

    def set_menu(self, menu):
        self.do("menu", menu=menu)

    def set_menu_on_update(self, menu):
        """Sets the menu for the next update request, and waits until the demo has stored it."""
        self.do("menuOnUpdate", menu=menu)
        self.settle()  # commands are handled in order

    def settle(self):
        """Waits until both threads of the demo have handled all earlier commands, and its main thread
        all messages that its bus thread has received. A query about a new application passes through
        both."""
        asked = self.names().count("running")
        self.do("running", identifier=f"org.zephyl.nobody{asked}")
        self.event("running", asked + 1)

    def names(self):
        return [event["event"] for event in self.events]

    def event(self, name, count=1):
        """Waits for the count-th event of this name."""
        found = lambda: [event for event in self.events if event["event"] == name]  # noqa: E731
        eventually(lambda: len(found()) >= count, what=f"{name} among {self.events}")
        return found()[count - 1]

    def log_line(self, text):
        return eventually(lambda: next((line for line in self.lines if text in line), None),
                          what=f"a line with {text!r} among {self.lines}")

    def close(self):
        self.process.stdin.close()
        try:
            return self.process.wait(10)
        finally:
            self.process.kill()
            self.process.wait()
            for reader in self._readers:
                reader.join(10)
