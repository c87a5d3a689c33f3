"""The desktop window on a screen, with methods to inspect and operate it."""

import os
import pathlib
import subprocess
import threading
import time

from gi.repository import GLib

from support.scripted_tray import TOKEN
from support.tray import SANDBOX, eventually

PROGRAM = SANDBOX / "zephyl-desktop"


def stays(condition, seconds=2.5):
    """Returns whether a condition holds whenever it is polled for some seconds."""
    end = time.monotonic() + seconds
    while time.monotonic() < end:
        if not condition():
            return False
        time.sleep(0.02)
    return True


class WindowView:
    """The contents of a process's window, as a screen reader gets them."""

    def __init__(self, screen, pid):
        self.screen, self.pid = screen, pid

    def parts(self):
        """Returns everything in the windows, including dialogs."""
        try:
            return [each for window in self.screen.accessibility.windows_of(self.pid)
                    for each in window.all() if each.has("showing")]
        except GLib.Error:  # an element disappeared while it was read
            return []

    def find(self, role, name):
        for each in self.parts():
            try:
                if each.role == role and each.name == name:
                    return each
            except GLib.Error:
                continue
        return None

    def part(self, role, name, limit=10.0):
        return eventually(lambda: self.find(role, name), limit, f"a {role} called {name!r}")

    def wait_until_gone(self, role, name):
        eventually(lambda: not self.find(role, name), what=f"no {role} called {name!r}")

    def label(self, text, limit=10.0):
        """Waits for a label that contains the text, and returns its whole text."""
        try:
            return eventually(lambda: next((name for name in self.labels() if text in name), None), limit)
        except AssertionError as error:
            raise AssertionError(f"no label with {text!r} in {self.labels()}") from error

    def labels(self):
        try:
            return [each.name for each in self.parts() if each.role == "label"]
        except GLib.Error:
            return []

    def rows(self):
        """Returns the rows of the list of servers."""
        try:
            return [each.name for each in self.parts() if each.role == "list item"]
        except GLib.Error:
            return []

    def row(self, name, limit=10.0):
        return self.part("list item", name, limit)

    def focused(self):
        """Returns the name of the focused element, or of the current row if it is a list."""
        try:
            focused = [each for each in self.parts() if each.has("focused")]
            rows = [each.name for each in focused if each.role == "list item"]
            others = [each for each in focused if each.role not in ("list item", "filler", "panel")]
        except GLib.Error:
            return None
        for each in others:
            return each.name if each.role != "list" else next(iter(rows), None)
        return None

    def has_focus_on(self, name):
        eventually(lambda: self.focused() == name, what=f"the focus on {name!r}")

    def is_active(self):
        return self.screen.active_process() == self.pid

    def is_visible(self):
        return self.screen.windows_of(self.pid) > 0

    def activate(self):
        self.screen.activate(self.pid)

    def replace(self, role, name, text):
        """Replaces the text of a field by typing."""
        self.part(role, name).grab_focus()
        self.has_focus_on(name)
        self.screen.press("ctrl+a")
        self.screen.type(text)

    def toggle(self, name):
        """Focuses a check box and presses the space bar."""
        self.part("check box", name).grab_focus()
        self.has_focus_on(name)
        self.screen.press("space")

    def press(self, name):
        """Focuses a button and presses the space bar."""
        self.part("push button", name).grab_focus()
        self.has_focus_on(name)
        self.screen.press("space")


class DesktopWindow(WindowView):
    """A run of the program with a scripted tray."""

    def __init__(self, screen, tray, **environment):
        variables = {**screen.environment, **environment}
        if tray is not None:
            variables |= {"ZEPHYL_ONBOARD_TOKEN": TOKEN, "ZEPHYL_ONBOARD_PORT": str(tray.port)}
        self.lines = []
        self.started = time.monotonic()
        self.process = subprocess.Popen([PROGRAM], env=variables, stdin=subprocess.DEVNULL,
                                        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        super().__init__(screen, self.process.pid)
        self._reader = threading.Thread(target=self._read)
        self._reader.start()

    def _read(self):
        for line in self.process.stdout:
            self.lines.append(line.rstrip("\n"))

    def ends(self, limit=10.0):
        status = self.process.wait(limit)
        self._reader.join(limit)
        return status

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
        self.ends()
        self.process.stdout.close()


def keep(screen, name):
    """Saves a screenshot in $ZEPHYL_SCREENSHOTS, if that is set."""
    directory = os.environ.get("ZEPHYL_SCREENSHOTS")
    if directory:
        screen.run("import", "-window", "root", str(pathlib.Path(directory) / f"{name}.png"))
