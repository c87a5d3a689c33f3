"""A desktop session with the installed packages."""

import json
import os
import pathlib
import signal
import subprocess

from support.panel import Desktop
from support.tray import eventually, free_port, is_alive

NAME = "com.zephyl.tray"
PROGRAM = "/usr/bin/zephyl-tray"
ENTRY = pathlib.Path("/usr/share/applications/com.zephyl.tray.desktop")


def install(directory):
    subprocess.run(["apt-get", "-qq", "install", "--yes", "--no-install-recommends", "--reinstall",
                    "--allow-downgrades", *map(str, directory.glob("*.deb"))],
                   env=os.environ | {"DEBIAN_FRONTEND": "noninteractive"}, check=True,
                   stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)


class Session:
    """A desktop with a panel and the tray."""

    def __init__(self):
        self.desktop = Desktop()
        self.desktop.environment.update(AGENT_TRAY_PORT=str(free_port()),
                                        ZEPHYL_ONBOARD_PORT=str(free_port()))
        self.log = self.desktop.root / "tray.log"
        self.base = self.desktop.root / "data" / "Zephyl"
        self.settings = self.desktop.root / "config" / NAME / "defaults.json"
        # Services of the bus get the environment of the bus.
        self.desktop.bus.kill()
        self.desktop.bus.services_environment = self.desktop.environment
        self.desktop.bus.start()
        self.peer = self.desktop.bus.peer()
        self.desktop.start_panel()
        eventually(lambda: self.owner("org.kde.StatusNotifierWatcher"), 30, "a panel")

    def owner(self, name):
        bus = ("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus")
        if not self.peer.call(*bus, "NameHasOwner", "(s)", name)[0]:
            return None
        return self.peer.call(*bus, "GetConnectionUnixProcessID", "(s)", name)[0]

    def items(self):
        return self.peer.call("org.kde.StatusNotifierWatcher", "/StatusNotifierWatcher",
                              "org.freedesktop.DBus.Properties", "Get", "(ss)",
                              "org.kde.StatusNotifierWatcher", "RegisteredStatusNotifierItems")[0]

    def has_item(self):
        return any("zephyl_tray" in item for item in self.items())

    def start_from_entry(self):
        """Waits until the tray's item is in the panel, and returns the tray's process id."""
        with open(self.log, "ab") as log:
            subprocess.run(["gio", "launch", ENTRY], env=self.desktop.environment, check=True,
                           stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        eventually(self.has_item, 20, "an item in the panel")
        return eventually(lambda: self.owner(NAME), what="the tray's name")

    def start_by_bus(self):
        self.peer.call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                       "StartServiceByName", "(su)", NAME, 0, limit=20000)
        eventually(self.has_item, 20, "an item in the panel")
        return self.owner(NAME)

    def end(self):
        pid = self.owner(NAME)
        if pid is not None:
            os.kill(pid, signal.SIGTERM)
            eventually(lambda: not is_alive(pid), 20, "the end of the tray")
            eventually(lambda: not self.has_item(), what="a panel without the item")

    def wait_for_line(self, text):
        eventually(lambda: text in self.log.read_text(), 20, f"a line with {text!r}")

    def join_servers(self):
        """Registers two servers and a setting, and returns the contents of the files."""
        servers = [{"id": f"{number:08x}-0000-4000-8000-000000000000", "label": f"Server {number}",
                    "ordinal": number, "enabled": number == 1, "agentId": f"agent-{number}",
                    "tailnetFingerprint": f"{number:032x}",
                    "ports": {"socks": free_port(), "shim": free_port(),
                              "tunnelHost": f"127.100.0.{number}", "tunnelFallback": free_port()}}
                   for number in (1, 2)]
        self.base.mkdir(parents=True, exist_ok=True)
        (self.base / "servers.json").write_text(json.dumps(servers))
        self.settings.parent.mkdir(parents=True, exist_ok=True)
        self.settings.write_text(json.dumps({"mark": "kept", "number": 7}))
        return self.data()

    def data(self):
        return (json.loads((self.base / "servers.json").read_text()),
                json.loads(self.settings.read_text()))

    def close(self):
        self.end()
        self.desktop.close()
