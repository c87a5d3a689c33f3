"""The steps about windows that the user asks for: the log, the folder chooser, an update."""

import threading
import time

from support.dialogs import DOWNLOAD, Window
from support.tray import eventually


class WindowSteps:
    """Opens windows without the pointer, whose steps come before. Part of `Tour`."""

    def step_log_window(self):
        """The log of a server's private network, as its row in the menu opens it."""
        item = self.session.item
        before = self.screen.at_rest()
        item.event(item.find("Tailnet Logs…"), "clicked")
        self.look_at_window("13-log", before, "Tailnet")
        eventually(lambda: not self.world.prompts(self.tray), what="the end of the log window")

    def step_folder_window(self):
        """The desktop's own folder chooser if there is a portal, else that of the tray."""
        answers = []
        path = f"/servers/{self.world.servers[0]}/roots"
        asking = threading.Thread(
            target=lambda: answers.append(self.world.api.ask("POST", path, limit=60)))
        before = self.screen.at_rest()
        asking.start()
        try:
            self.look_at_window("14-folder", before, "Share|Choose a project folder")
        finally:
            asking.join()
        assert answers == [(200, {"ok": True})], answers

    def step_update_window(self):
        """The progress of a download, as the tray shows it."""
        before = self.screen.at_rest()
        window = Window(self.screen, {"alert": DOWNLOAD})
        try:
            window.report("shown")
            window.send({"progress": {"fraction": 0.4, "text": "5.0 of 12.4 MB"}})
            self.look_at_window("15-update", before, "Zephyl")
            assert window.report("answer")["button"] == 0
            assert window.ends() == 0
        finally:
            window.close()

    def look_at_window(self, name, before, title):
        """Takes a picture of a window that opens, and closes it by Escape."""
        self.screen.change(before, limit=20, rests=False)  # a cursor may blink in it
        self.shot(name)
        if not getattr(self.desktop, "WAYLAND", False):
            self.screen.activate(title)
        time.sleep(0.5)
        self.screen.press("Escape")
