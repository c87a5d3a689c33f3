"""The steps of a tour in their order. Each checks the tray from outside: by messages on the bus, by the
requests to the agent and the browser, and by pictures of the screen."""

import signal
import time

from lab.screen import HEIGHT, WIDTH, Cut, middle
from lab.traffic import ITEM, MENU, NOTIFICATIONS, differences, outline_of
from lab.windows import WindowSteps
from lab.world import DISABLED
from support.tray import Tray, eventually

QUIET = 1.5  # seconds until a host has shown a change
TYPED = "Tab space Left space Return".split()


class Tour(WindowSteps):
    """Performs the steps with a tray that it starts. Owns the tray until `close`."""

    def __init__(self, session, pictures):
        self.session, self.world, self.screen = session, session.world, session.screen
        self.traffic, self.desktop = session.traffic, session.desktop
        self.pictures = pictures
        self.place = None  # the center of the item on the screen
        self.tray = None

    REQUIRED = ("item", "icon")  # by the other steps
    STEPS = ("item", "icon", "folder count", "tool tip", "menu", "submenu", "row action",
             "closed menu update", "open menu unchanged", "notification", "prompt",
             "typing elsewhere", "shell restart", "tray restart", "second start", "no idle signals",
             "menu matches tray", "log window", "folder window", "folder portal", "update window")

    def step(self, name):
        """Performs a step. Raises an exception if it fails."""
        getattr(self, "step_" + name.replace(" ", "_"))()

    def shot(self, name):
        self.screen.save(self.pictures / f"{name}.png")

    # The item

    def start_tray(self):
        self.tray = Tray(self.world, "--desktop")
        eventually(lambda: self.traffic.readers(self.started), 30, "a host that reads the menu")

    def step_item(self):
        before = self.screen.at_rest(self.desktop.PANEL)
        self.started = time.monotonic()
        self.start_tray()
        self.world.until_connected()
        time.sleep(QUIET)
        self.screen.change(before, self.desktop.PANEL, 20)
        self.shot("1-item")

    def step_icon(self):
        """Checks that the icon changes while the agent is busy. Locates the item by this change."""
        before = self.locate()
        self.shot("2-busy")
        eventually(self.is_idle, 20, "an idle agent")
        eventually(lambda: not self.screen.picture(self.desktop.PANEL).difference(before), 10,
                   "the icon of an idle agent")

    def locate(self):
        """Sets `place` to the part of the panel that changes when the agent becomes busy. Returns the
        picture of the panel before the change."""
        eventually(self.is_idle, 20, "an idle agent")
        before = self.screen.at_rest(self.desktop.PANEL)
        self.world.agent.call("POST", "/sandbox/activity", {"busy": True, "seconds": 6})
        box = self.screen.change(before, self.desktop.PANEL)
        self.place = middle(box)
        busy = self.screen.at_rest(self.desktop.PANEL)
        left, top = self.desktop.PANEL[:2]
        area = box[0] - left, box[1] - top, box[2] - left, box[3] - top
        self.icons = [Cut(picture, area) for picture in (before, busy)]
        return before

    def find(self):
        """Updates `place` by searching the panel for the icons that `locate` has recorded."""
        now = self.screen.at_rest(self.desktop.PANEL)
        for icon in self.icons:
            if (found := icon.find(now)) is not None:
                self.place = found + self.desktop.PANEL[0], self.place[1]

    def is_idle(self):
        return not self.world.agent.call("GET", "/api/activity")["busy"]

    def step_folder_count(self):
        """Checks that the panel shows the number of shared folders beside the icon."""
        before = self.screen.at_rest(self.desktop.PANEL)
        folder = self.world.root / "second"
        folder.mkdir()
        self.world.agent.call("POST", "/api/roots", {"root": str(folder)})
        eventually(lambda: self.session.item.get("XAyatanaLabel") == " 2", what="the number 2")
        eventually(self.is_idle, 20, "an idle agent")
        time.sleep(2 * QUIET)
        now = self.screen.at_rest(self.desktop.PANEL)
        assert now.difference(before), "the panel has not changed"

    def step_tool_tip(self):
        self.park()
        before = self.screen.at_rest()
        self.screen.point(*self.place)
        self.screen.change(before)
        self.shot("3-tool-tip")
        self.park()

    def park(self):
        """Moves the pointer away from the panel."""
        self.screen.point(640, 400)
        time.sleep(0.5)

    # The menu

    def open_menu(self):
        """Opens the menu with the pointer and returns the box that it covers. If that fails, searches
        the item, which another item may have moved, and tries again."""
        try:
            return self._open_menu()
        except AssertionError:
            self.close_menu()
            self.find()
            return self._open_menu()

    def _open_menu(self):
        self.park()
        before = self.screen.at_rest()
        begin = time.monotonic()
        self.screen.click(*self.place, self.desktop.BUTTON)
        box = self.screen.change(before)
        assert box[3] - box[1] > 100, f"only {box} has changed, which is too small for a menu"
        calls = self.traffic.calls(interface=MENU, since=begin)
        assert calls or getattr(self.desktop, "OPENS_SILENTLY", False), "the panel made no call"
        return box

    def close_menu(self):
        if self.uses_pointer:
            self.screen.click(640, 600)
        else:
            self.screen.press("Escape", "Escape", delay=0.5)
        self.park()

    @property
    def uses_pointer(self):
        return hasattr(self.desktop, "ROWS")

    def go_to_row(self, menu, name, keys):
        """Moves to a row of an open menu: with keys, or with the pointer if menus ignore keys."""
        if not self.uses_pointer:
            return self.screen.press(*keys)
        left, top, right, bottom = menu
        self.screen.point((left + right) // 2, int(top + self.desktop.ROWS[name] * (bottom - top)))
        time.sleep(1)

    def choose_row(self):
        """Activates the current row."""
        if self.uses_pointer:
            self.screen.run("xdotool", "click", "1")
        else:
            self.screen.press("Return")

    def step_menu(self):
        self.open_menu()
        self.knows(lambda menu: any("embeddings" in str(row) for row in menu), "a row about embeddings")
        self.shot("4-menu")
        self.close_menu()

    def step_submenu(self):
        """Opens the submenu of the first server. Leaves it open for the next step."""
        menu = self.open_menu()
        before = self.screen.at_rest()
        self.go_to_row(menu, "server", ("Down", "Down", "Right"))
        box = self.screen.change(before)
        beside = (box[0], menu[0]) if box[0] < menu[0] else (menu[2], box[2])
        self.submenu = beside[0], box[1], beside[1], box[3]
        assert box[2] <= WIDTH and box[3] - box[1] > 40, f"the submenu is at {box}"
        self.shot("5-submenu")

    def step_row_action(self):
        """Opens a server's page with the first row of the open submenu."""
        self.go_to_row(self.submenu, "page", ())
        self.choose_row()
        text = eventually(lambda: self.world.opened.exists() and self.world.opened.read_text(),
                          what="an address in the browser")
        assert text.startswith("http://"), text
        self.close_menu()

    def known(self):
        """Returns the outline of the menu that the panel knows."""
        return self.traffic.view(self.traffic.readers(self.started)[-1], self.started).outline()

    def knows(self, condition, what):
        """Waits until the menu that the panel knows meets a condition."""
        eventually(lambda: condition(self.known()), 10, f"{what} in {self.known()}")

    def step_closed_menu_update(self):
        """Checks that the panel learns of changes while the menu is closed, at the latest when the
        menu is opened on a desktop that reads it then."""
        if getattr(self.desktop, "READS_WHEN_OPENED", False):
            # It announces an opening when it connects. The tray publishes changes when that ends.
            self.open_menu()
            self.close_menu()
        self.world.rename(0, "Renamed while closed")
        self.knows(lambda menu: "Renamed while closed" in menu, "the new name")
        self.world.enable(DISABLED, True)
        self.world.until_connected(3, limit=60)  # which is slow on a busy machine
        if getattr(self.desktop, "READS_WHEN_OPENED", False):
            time.sleep(QUIET)
            self.open_menu()
        self.knows(lambda menu: self._rows_of(menu, "Archive", "Open in Browser"),
                   "an enabled server's rows")
        if not getattr(self.desktop, "READS_WHEN_OPENED", False):
            self.open_menu()
        self.shot("6-changed-while-closed")
        self.close_menu()

    def _rows_of(self, menu, server, beginning):
        """Returns whether a submenu has such a row or the panel has not read the submenu."""
        rows = menu[menu.index(server) + 1]
        return rows is None or any(str(row).startswith(beginning) for row in rows)

    def step_open_menu_unchanged(self):
        """Checks that an open menu is not changed and that the change appears afterwards."""
        area = self.without_panel(self.open_menu())
        before = self.screen.at_rest(area)
        self.world.rename(0, "Renamed while open")
        time.sleep(3)
        self.shot("7-changed-while-open")
        changed = self.screen.picture(area).difference(before)
        self.close_menu()
        assert not changed, f"the open menu has changed at {changed}"
        # Some hosts do not report that a menu was closed. They learn of the change when it is reopened.
        self.open_menu()
        self.knows(lambda menu: "Renamed while open" in menu, "the new name")
        self.close_menu()

    # Requests

    def step_notification(self):
        """Raises a request without a prompt. Opens the prompt with the action of the notification."""
        self.session.ensure_notifier()
        self.world.hide_dialogs()
        area = self.beyond_panel()
        before = self.screen.at_rest(area)
        begin = time.monotonic()
        identifier = self.world.raise_request()
        eventually(lambda: self.traffic.calls("Notify", NOTIFICATIONS, begin), what="a notification")
        box = self.screen.change(before, area, rests=False)  # some have a countdown
        self.screen.point(*middle(box))  # keeps it open on a slow machine, too
        self.shot("8-notification")
        self.world.restore_dialogs()
        self._invoke_action(box, begin)
        eventually(lambda: self.world.prompts(self.tray), what="the prompt")
        self.decide(identifier, "Return", "denied")

    def beyond_panel(self):
        """Returns the area of the screen above or below the panel."""
        _, top, _, height = self.desktop.PANEL
        return (0, height, WIDTH, HEIGHT - height) if top == 0 else (0, 0, WIDTH, top)

    def without_panel(self, box):
        """Returns the part of a box beyond the panel, whose clock may change, as an area."""
        _, top, _, height = self.beyond_panel()
        upper, lower = max(box[1], top), min(box[3], top + height - 1)
        return box[0], upper, box[2] - box[0] + 1, lower - upper + 1

    def _invoke_action(self, box, begin):
        left, top, right, bottom = box
        across, down = getattr(self.desktop, "NOTIFICATION_ACTION", (0.5, 0.5))
        self.screen.click(int(left + across * (right - left)), int(top + down * (bottom - top)))
        eventually(lambda: self.traffic.calls("ActionInvoked", NOTIFICATIONS, begin), 5,
                   "the notification's action")

    def decide(self, identifier, key, state):
        """Activates the prompt, waits until it accepts keys, presses one and waits for the state."""
        prompt = self.world.prompts(self.tray)[0]
        if not getattr(self.desktop, "WAYLAND", False):
            window = eventually(lambda: self.screen.windows_of(prompt), what="the prompt's window")
            self.screen.run("xdotool", "windowactivate", window[0])
        time.sleep(2)
        self.screen.press(key)
        eventually(lambda: self.world.agent.state(identifier) == state, 5, f"{state} as its state")
        eventually(lambda: not self.world.prompts(self.tray), what="the prompt's end")

    def step_prompt(self):
        """Raises a request while another window has the focus, and answers it in the prompt."""
        self.park()
        identifier = self.world.raise_request()
        eventually(lambda: self.world.prompts(self.tray), what="the prompt")
        time.sleep(2)
        self.shot("9-prompt")
        self.go_to_prompt()
        self.decide(identifier, "Return", "denied")

    def go_to_prompt(self):
        """Activates the open prompt with its row in the menu."""
        menu = self.open_menu()
        self.go_to_row(menu, "request", ("Down",))
        self.choose_row()
        self.park()

    def step_typing_elsewhere(self):
        """Types into a terminal while a prompt appears. The keys must not answer the request."""
        terminal = "foot" if getattr(self.desktop, "WAYLAND", False) else "xterm"
        self.session.start("terminal", terminal)
        time.sleep(3)
        self.screen.click(400, 350)
        identifier = self.world.raise_request("cat /etc/shadow")
        # Starts xdotool once. After a pause of half a second, which is possible between two starts on
        # a busy machine, the prompt accepts keys.
        self.screen.run("xdotool", "key", "--delay", "80", *TYPED * 5)
        state = self.world.agent.state(identifier)
        self.shot("10-after-typing")
        self.session.kill("terminal")
        if state == "pending":
            self.world.withdraw(identifier)
        eventually(lambda: not self.world.prompts(self.tray), what="the prompt's end")
        assert state == "pending", f"keys for a terminal made the request {state}"

    # Restarts

    def step_shell_restart(self):
        """Kills and restarts the shell. Checks that the item reappears with its menu."""
        self.session.kill_shell()
        begin = time.monotonic()
        self.session.start_shell()
        self.after_shell()
        eventually(lambda: self.traffic.readers(begin), 20, "a host that reads the menu")
        self.screen.at_rest()
        self.shot("11-shell-restarted")
        self.open_menu()
        self.close_menu()

    def after_shell(self):
        getattr(self.desktop, "after_shell", lambda session: None)(self.session)

    def step_tray_restart(self):
        """Kills and restarts the tray. Checks that the item disappears and reappears with its menu, and
        that the servers are connected again."""
        before = self.screen.at_rest(self.desktop.PANEL)
        self.tray.send(signal.SIGKILL)
        self.tray.wait()
        self.screen.change(before, self.desktop.PANEL)
        self.started = time.monotonic()
        self.start_tray()
        took = self.world.until_connected(3, limit=30)
        assert took < 15, f"the servers were connected after {took:.0f} s, not within 15 s"
        self.screen.at_rest(self.desktop.PANEL)
        self.shot("12-tray-restarted")
        self.open_menu()
        self.close_menu()

    def step_second_start(self):
        """Checks that a second tray exits and leaves the first one running."""
        again = Tray(self.world, "--desktop")
        assert again.wait() == 0, again.lines
        assert self.tray.process.poll() is None, "the first tray has ended"

    def step_no_idle_signals(self):
        """Checks that the tray sends no signals while its state is constant."""
        time.sleep(QUIET)
        begin = time.monotonic()
        time.sleep(5)
        signals = [call for call in self.traffic.calls(since=begin)
                   if call.is_signal and call.interface in (MENU, ITEM)]
        assert len(signals) <= 1, signals  # one when the download reaches the next percent

    def step_menu_matches_tray(self):
        """Compares the menu that the panel knows with that of the tray. No later step uses the panel,
        because reading the menu makes this program another host."""
        known, wanted = self.known(), outline_of(self.session.item.layout())
        assert not differences(known, wanted), differences(known, wanted)

    def recover(self):
        """Closes everything that a failed step may have left open, and withdraws its requests."""
        self.world.restore_dialogs()
        if "terminal" in self.session.processes:
            self.session.kill("terminal")
        self.close_menu()
        if self.tray is None or self.tray.process.poll() is not None:
            return
        for request in self.world.agent.call("GET", "/api/activity")["pendingApprovals"]:
            self.world.withdraw(request["id"])

    def close(self):
        """Ends the tray."""
        if self.tray is not None:
            if self.tray.process.poll() is None:
                self.tray.send(signal.SIGTERM)
            self.tray.close()
