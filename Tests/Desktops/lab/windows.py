"""Steps for windows that the user opens: the log, the folder chooser and the update progress."""

import contextlib
import threading
import time

from lab.traffic import FILE_CHOOSER
from support.dialogs import DOWNLOAD, Window
from support.tray import eventually

FOLDER_TITLE = "Share|Choose a project folder"  # of the tray's chooser and of a portal's


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
        before = self.screen.at_rest()
        with self.folder_request():
            self.look_at_window("14-folder", before, FOLDER_TITLE)

    def step_folder_portal(self):
        """Chooses a folder in the chooser of the portal by typing its path."""
        folder = self.world.root / "x"  # too short for a completion by the chooser, which comes late
        folder.mkdir()
        before, begin = self.screen.at_rest(), time.monotonic()
        with self.folder_request():
            eventually(lambda: self.traffic.calls("OpenFile", FILE_CHOOSER, begin), 30,
                       "a call of the portal")
            self.await_window(before, FOLDER_TITLE)
            self.screen.type(str(folder))
            time.sleep(1)
            self.shot("16-folder-portal")
            self.screen.press("Return")
        roots = self.world.agent.call("GET", "/api/roots")
        assert str(folder) in str(roots), roots

    @contextlib.contextmanager
    def folder_request(self):
        """Requests a folder to share while the block runs. Checks the answer at its end."""
        answers = []
        path = f"/servers/{self.world.servers[0]}/roots"
        request = threading.Thread(
            target=lambda: answers.append(self.world.api.ask("POST", path, limit=60)))
        request.start()
        try:
            yield
        except Exception:
            self.screen.press("Escape", "Escape")
            raise
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
        self.await_window(before, title)
        self.shot(name)
        self.screen.press("Escape")

    def await_window(self, before, title):
        """Waits for a window that changes the picture `before`, and activates it."""
        self.screen.change(before, limit=20, rests=False)  # the window may have a blinking cursor
        if not getattr(self.desktop, "WAYLAND", False):
            self.screen.activate(title)
        time.sleep(0.5)
