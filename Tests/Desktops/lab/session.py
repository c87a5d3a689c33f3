"""A private session: two buses, a screen, a home and the programs of one desktop."""

import os
import pathlib
import shutil
import signal
import subprocess
import time

from lab.screen import Screen
from lab.traffic import Traffic
from lab.world import LabWorld
from support.session_bus import WATCHER, Item, SessionBus
from support.tray import command_line, eventually

ITEM_PATH = "/org/ayatana/NotificationItem/zephyl_tray"


class Session:
    """Owns its processes, buses and files until `close`. `desktop` is one of the modules in
    Tests/Desktops/desktops. `number` is different for each desktop. `settings` are additional
    environment variables for all programs."""

    def __init__(self, desktop, dark, number, scale=1.0, settings=(), monitors=1):
        self.desktop, self.dark, self.scale, self.monitors = desktop, dark, scale, monitors
        self.world = LabWorld(number)
        self.home, self.root = self.world.home, self.world.root
        self.runtime = self.root / "run"
        self.runtime.mkdir(mode=0o700)
        self.environment = self.world.environment
        self._set_environment()
        self.environment.update(settings)
        self.screen = Screen(self.environment, scale, monitors)
        if scale != 1:
            self._set_scale()
        self.system_bus = SessionBus().start()
        self.environment["DBUS_SYSTEM_BUS_ADDRESS"] = self.system_bus.address
        self.bus = SessionBus(self.environment).start()
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = self.bus.address
        self.traffic = Traffic(self.bus.address)
        self.peer = self.bus.peer()
        self.processes = {}

    def _set_environment(self):
        shared = f"{self.world.prefix}/share:/usr/local/share:/usr/share"
        self.environment.update({
            "USER": "root", "SHELL": "/bin/sh", "XDG_RUNTIME_DIR": str(self.runtime),
            "XDG_CURRENT_DESKTOP": self.desktop.NAME, "XDG_SESSION_TYPE": "x11",
            "XDG_CONFIG_DIRS": "/etc/xdg", "XDG_DATA_DIRS": shared, "LIBGL_ALWAYS_SOFTWARE": "1",
            "GVFS_DISABLE_FUSE": "1", "GSETTINGS_BACKEND": "keyfile", "NO_AT_BRIDGE": "1"})

    def _set_scale(self):
        """Sets the scale like the settings of the desktops. Some of their modules set more."""
        subprocess.run(["xrdb", "-merge"], input=f"Xft.dpi: {96 * self.scale:.0f}\n", text=True,
                       env=self.environment, check=True)
        if self.scale == int(self.scale):
            self.environment["GDK_SCALE"] = str(int(self.scale))
            self.environment["GDK_DPI_SCALE"] = str(1 / self.scale)

    # Programs

    def start(self, name, *command, **environment):
        """Starts a program of the desktop. Its output is written to NAME.log in the session's root."""
        with open(self.root / f"{name}.log", "a") as log:
            self.processes[name] = subprocess.Popen(
                command, env={**self.environment, **environment}, stdin=subprocess.DEVNULL,
                stdout=log, stderr=log, start_new_session=True, cwd=self.home)
        return self.processes[name]

    def kill(self, name):
        """Kills a program and its process group."""
        process = self.processes.pop(name)
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        process.wait()

    def run(self, *command):
        return self.screen.run(*command)

    def set(self, schema, key, value):
        self.run("gsettings", "set", schema, key, value)

    def start_desktop(self):
        self.desktop.start(self)
        self._export_environment()
        self.ensure_notifier()
        self.start_shell()
        self._export_environment()  # a shell that is a compositor has added its socket

    def _export_environment(self):
        """Sets the environment of the services that the bus starts from now on."""
        self.peer.call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                       "UpdateActivationEnvironment", "(a{ss})", self.environment)

    def ensure_notifier(self):
        """Starts the desktop's notification daemon, if it has one that is not running. An idle daemon
        may exit. The bus would then start the daemon of any desktop."""
        program = getattr(self.desktop, "NOTIFIER", None)
        running = self.processes.get("notify")
        if program is not None and (running is None or running.poll() is not None):
            self.start("notify", program)
            eventually(lambda: self.owns("org.freedesktop.Notifications"), what="a notification daemon")

    def owns(self, name):
        """Returns whether a connection owns this name on the session bus."""
        return self.peer.call("org.freedesktop.DBus", "/org/freedesktop/DBus",
                              "org.freedesktop.DBus", "NameHasOwner", "(s)", name)[0]

    def start_shell(self):
        """Starts the shell and waits until it shows status items and the screen is at rest."""
        self.desktop.start_shell(self)
        eventually(self.shows_items, 90, "a host of status items")
        time.sleep(self.desktop.SETTLING)
        self.screen.at_rest(limit=60)

    def kill_shell(self):
        """Kills the shell and waits until its connection has left the bus."""
        before = self.traffic.readers()
        self.kill("shell")
        names = lambda: self.peer.call(  # noqa: E731
            "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "ListNames")[0]
        eventually(lambda: not set(before[-1:]) & set(names()), what="the end of the shell")

    def shows_items(self):
        """Returns whether a host of status items is registered."""
        try:
            return self.peer.call(
                WATCHER, "/StatusNotifierWatcher", "org.freedesktop.DBus.Properties", "Get", "(ss)",
                WATCHER, "IsStatusNotifierHostRegistered")[0]
        except Exception:  # no program owns the name yet
            return False

    @property
    def item(self):
        return Item(self.peer, "com.zephyl.tray", ITEM_PATH)

    # End

    def close(self, keep_logs=None):
        """Ends all programs and removes all files. Copies the logs to `keep_logs` first."""
        for name in list(self.processes):
            self.kill(name)
        self.traffic.close()
        self.screen.close()
        for bus in (self.bus, self.system_bus):
            bus.close()
        self._end_strays()
        self._unmount()
        if keep_logs is not None:
            for log in self.root.glob("*.log"):
                shutil.copy(log, keep_logs / f"{self.desktop.__name__.split('.')[-1]}-{log.name}")
        self.world.remove()

    def _end_strays(self):
        """Kills services of the bus: the remaining processes with this home in their environment."""
        def strays():
            return [int(entry.name) for entry in pathlib.Path("/proc").iterdir()
                    if entry.name.isdigit() and self._is_ours(entry)]
        deadline = time.monotonic() + 5
        while (left := strays()) and time.monotonic() < deadline:
            for pid in left:
                try:
                    os.kill(pid, signal.SIGKILL)
                except ProcessLookupError:
                    pass
            time.sleep(0.1)
        if left:
            print("processes that could not be ended:", [command_line(pid) for pid in left])

    def _is_ours(self, process):
        try:
            return f"HOME={self.home}".encode() in (process / "environ").read_bytes().split(b"\0")
        except OSError:
            return False

    def _unmount(self):
        for line in pathlib.Path("/proc/mounts").read_text().splitlines():
            place = line.split()[1]
            if place.startswith(f"{self.root}/"):
                subprocess.run(["umount", "--lazy", place], check=False)
