"""Steps for windows that the user opens: the log, the folder chooser and the update progress."""

import threading
import time

from support.dialogs import DOWNLOAD, Window
from support.tray import eventually


class WindowSteps:
    """Steps that open windows without the pointer. A base class of `Tour`."""

    def step_log_window(self):
        """Opens the log of a server's tailnet by the row in the menu."""
        item = self.session.item
        before = self.screen.at_rest()
        item.event(item.find("Tailnet Logs…"), "clicked")
        self.look_at_window("13-log", before, "Tailnet")
        eventually(lambda: not self.world.prompts(self.tray), what="the end of the log window")

    def step_folder_window(self):
        """Opens and cancels the folder chooser, of the desktop if it has a portal, else of the tray."""
        answers = []
        path = f"/servers/{self.world.servers[0]}/roots"
        request = threading.Thread(
            target=lambda: answers.append(self.world.api.ask("POST", path, limit=60)))
        before = self.screen.at_rest()
        request.start()
        try:
            self.look_at_window("14-folder", before, "Share|Choose a project folder")
        finally:
            request.join()
        assert answers == [(200, {"ok": True})], answers

    def step_update_window(self):
        """Opens and cancels the window that shows the progress of a download."""
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
        """Waits for a window, takes a picture of it, and closes it with Escape."""
        self.screen.change(before, limit=20, rests=False)  # the window may have a blinking cursor
        self.shot(name)
        if not getattr(self.desktop, "WAYLAND", False):
            self.screen.activate(title)
        time.sleep(0.5)
        self.screen.press("Escape")
