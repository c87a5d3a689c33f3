"""The world of a tour: servers in several states, an agent, a browser and a desktop window."""

import json
import time

from support.approvals import Agent
from support.control_api import ControlApi, Window
from support.tray import World, command_name, descendants, eventually, free_port

LABELS = ["Patient Hill", "lab_north & <south>…", "Archive", "Build farm"]
DISABLED, NEVER_JOINED = 2, 3  # indices of LABELS


class LabWorld(World):
    """A world whose loopback addresses are different for each `number`. The file `opened` contains the
    arguments of the browser."""

    def __init__(self, number):
        super().__init__()
        for component in ("desktop", "updater"):
            self.install(component)
        self.dialogs = self.prefix / "libexec/zephyl-tray/zephyl-tray-dialogs"
        self.use_sandbox_agent()
        self.use_sandbox_tailnet()
        self.window = Window(self)
        self.opened = self.root / "opened"
        self._add_browser()
        self._choose_portal()
        self.servers = self._add_servers(number)
        self.add_files(40)
        self.environment.update(ZEPHYL_SANDBOX_MODEL_RATE="20000")  # one percent per minute

    def _add_browser(self):
        browser = self.root / "bin" / "xdg-open"
        browser.parent.mkdir()
        browser.write_text(f"#!/bin/sh\necho \"$@\" >>'{self.opened}'\n")
        browser.chmod(0o755)
        path = f"{browser.parent}:{self.prefix}/bin:{self.environment['PATH']}"
        self.environment["PATH"] = path

    def _choose_portal(self):
        """Selects the portal of GTK, whose chooser can be used with keys alone, also on desktops with
        another one."""
        configuration = self.home / ".config/xdg-desktop-portal/portals.conf"
        configuration.parent.mkdir(parents=True)
        configuration.write_text("[preferred]\ndefault=gtk\n")

    def _add_servers(self, number):
        identifiers = self.add_servers(len(LABELS))
        servers = self.registry()
        for place, server in enumerate(servers):
            server["label"] = LABELS[place]
            server["enabled"] = place != DISABLED
            server["ports"]["tunnelHost"] = f"127.{100 + number}.0.{place + 1}"
            server["ports"]["tunnelFallback"] = free_port()
        (self.base / "servers.json").write_text(json.dumps(servers))
        (self.state_directory(identifiers[NEVER_JOINED]) / "enrolment.json").unlink()
        return identifiers

    @property
    def agent(self):
        return Agent(self.agent_port)

    @property
    def api(self):
        return ControlApi(self.control_port, self.window.token)

    def rename(self, place, label):
        self.api.do("POST", f"/servers/{self.servers[place]}/label", {"label": label})

    def enable(self, place, enabled):
        self.api.do("POST", f"/servers/{self.servers[place]}/enabled", {"enabled": enabled})

    def raise_request(self, target="cat /etc/my_secret_file"):
        return self.agent.call("POST", "/sandbox/requests", {
            "kind": "shell", "tool": "bash", "target": target, "userName": "Ana",
            "chatTitle": "Release_prep & more"})["id"]

    def withdraw(self, identifier):
        self.agent.call("DELETE", f"/sandbox/requests/{identifier}")

    def hide_dialogs(self):
        """Hides the dialogs program, so that a request stays in the menu."""
        self.dialogs.rename(self.dialogs.with_suffix(".hidden"))

    def restore_dialogs(self):
        hidden = self.dialogs.with_suffix(".hidden")
        if hidden.exists():
            hidden.rename(self.dialogs)

    def prompts(self, tray):
        """Returns the process ids of the tray's dialogs programs."""
        return [pid for pid in descendants(tray.pid) if command_name(pid) == self.dialogs.name[:15]]

    def until_connected(self, count=2, limit=30.0):
        """Waits until `count` servers are connected. Returns the seconds that it took."""
        begin = time.monotonic()

        def connected():
            try:
                servers = self.api.get("/servers")["servers"]
            except (OSError, AssertionError):
                return False
            return sum(bool(server.get("enrolled")) for server in servers) >= count
        eventually(connected, limit, f"{count} connected servers")
        return time.monotonic() - begin
