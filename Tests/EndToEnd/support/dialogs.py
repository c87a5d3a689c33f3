"""The real dialogs program on a private screen."""

import json
import os
import pathlib
import shutil
import subprocess
import tempfile
import threading

from gi.repository import GLib

from support.accessibility import Accessibility
from support.desktop_services import PORTAL, PORTAL_PATH
from support.panel import Picture
from support.session_bus import SessionBus
from support.tray import BUILD, SANITIZERS, eventually

PROGRAM = BUILD / "zephyl-tray-dialogs"
WIDTH, HEIGHT = 1600, 1000

# Requests of the tray.
APPROVAL = {
    "style": "critical", "heading": "Allow access outside the shared folder?",
    "explanation": "Ana — in “Release prep”\nasked the agent to run: shell\n\n"
                       "Command:\ncat /home/ana/.ssh/id_ed25519\n\n"
                       "Why this is being flagged:\n  • It reads a credential\n\n"
                       "Shared folder: /home/ana/project",
    "buttons": ["Deny", "Allow once", "Always allow…"], "safeButton": 0,
    "permittingButtons": [1, 2], "requestedByUser": True}
CONFIRMATION = {
    "style": "critical", "heading": "⚠️ Create a permanent exception?",
    "explanation": "This permanently allows:\n\n/etc/passwd\n\nType ALWAYS ALLOW below to confirm:",
    "buttons": ["Cancel", "Create permanent exception"], "safeButton": 0,
    "permittingButtons": [1], "requestedByUser": True,
    "textField": {"placeholder": "ALWAYS ALLOW", "width": 300}}
INVITE = {
    "style": "question", "heading": "Join the Zephyl Tailnet",
    "explanation": "Paste the invite key you were sent. It looks like:\n\n"
                       "  inv_v2_<fingerprint>_<key>\n\n"
                       "The key can only be used once and expires after 24 hours.",
    "buttons": ["Join", "Cancel"], "safeButton": 1, "requestedByUser": True,
    "textField": {"placeholder": "inv_v2_…", "width": 380}}
ERROR = {
    "style": "warning", "heading": "Couldn't update shared folders",
    "explanation": "The agent answered with status 500.", "buttons": ["OK"], "safeButton": 0,
    "requestedByUser": True}
DOWNLOAD = {
    "style": "information", "heading": "Downloading Zephyl 2.0…",
    "explanation": "The update is verified, and installed when the agent is idle.",
    "buttons": ["Cancel"], "safeButton": 0, "requestedByUser": True,
    "progress": {"fraction": 0, "text": "0.0 of 12.4 MB"}}

SETTINGS = """<node><interface name="org.freedesktop.portal.Settings">
  <method name="Read"><arg type="s" direction="in"/><arg type="s" direction="in"/>
    <arg type="v" direction="out"/></method>
</interface></node>"""


class Screen:
    """A screen with a window manager, a session bus and accessibility."""

    def __init__(self):
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="zd-", dir="/tmp"))
        self.home = self.root / "home"
        self.home.mkdir()
        (self.root / "run").mkdir(mode=0o700)
        self.environment = {
            "PATH": os.environ["PATH"], "LANG": "C.UTF-8", "HOME": str(self.home),
            "XDG_RUNTIME_DIR": str(self.root / "run"), "QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1"} | SANITIZERS
        reader, writer = os.pipe()
        self._server = subprocess.Popen(
            ["Xvfb", "-displayfd", str(writer), "-screen", "0", f"{WIDTH}x{HEIGHT}x24",
             "-nolisten", "tcp", "-noreset"], pass_fds=[writer], stdin=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL)
        os.close(writer)
        with os.fdopen(reader) as number:
            self.environment["DISPLAY"] = f":{number.readline().strip()}"
        # No other service of the machine, such as a portal, may answer in place of the test.
        self.bus = SessionBus(self.environment, services=["org.a11y.Bus"]).start()
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = self.bus.address
        self._manager = subprocess.Popen(
            ["openbox"], env=self.environment, stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        eventually(lambda: self._property("_NET_SUPPORTING_WM_CHECK"), what="a window manager")
        self.accessibility = Accessibility(self.bus)

    def _property(self, name):
        answer = self.run("xprop", "-root", name)
        return "window id" in answer and answer

    def run(self, *command, **options):
        return subprocess.run(command, env=self.environment, check=True, capture_output=True,
                              timeout=10, **options).stdout.decode()

    def press(self, *keys):
        self.run("xdotool", "key", *keys)

    def type(self, text):
        self.run("xdotool", "type", "--delay", "1", text)

    def click(self, accessible):
        left, upper, width, height = accessible.box()
        self.run("xdotool", "mousemove", str(left + width // 2), str(upper + height // 2),
                 "click", "1")

    def window_ids(self, pid):
        """Returns the visible windows of a process, including menus."""
        found = subprocess.run(["xdotool", "search", "--onlyvisible", "--all", "--pid", str(pid),
                                "--name", ""],
                               env=self.environment, capture_output=True, text=True, timeout=10)
        return found.stdout.split()

    def windows_of(self, pid):
        return len(self.window_ids(pid))

    def activate(self, pid):
        """Activates the window of a process, like a task bar."""
        window = eventually(lambda: self.window_ids(pid), what="a window")[0]
        self.run("xdotool", "windowactivate", window)
        eventually(lambda: self.active_process() == pid, what="the focus")

    def active_process(self):
        found = subprocess.run(["xdotool", "getwindowfocus", "getwindowpid"],
                               env=self.environment, capture_output=True, text=True, timeout=10)
        return int(found.stdout) if found.stdout.strip() else None

    def accepting(self, pid):
        """Waits until the buttons of a process's window are enabled."""
        buttons = [each for each in self.accessibility.window_of(pid).all()
                   if each.role == "push button"]
        eventually(lambda: any(each.has("enabled") for each in buttons),
                   what="a window that accepts input")

    def clipboard(self):
        """Returns the text on the clipboard; None if there is none."""
        found = subprocess.run(["xclip", "-o", "-selection", "clipboard", "-t", "UTF8_STRING"],
                               env=self.environment, capture_output=True, timeout=10)
        return found.stdout.decode() if found.returncode == 0 else None

    def copy(self, text):
        # It keeps running to provide the text, so it must not inherit the pipes.
        subprocess.run(["xclip", "-i", "-selection", "clipboard"], env=self.environment,
                       input=text.encode(), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                       check=True)

    def picture(self):
        return Picture(subprocess.run(["import", "-window", "root", "-depth", "8", "ppm:-"],
                                      env=self.environment, check=True, capture_output=True).stdout)

    def prefer_dark(self):
        """Makes the desktop prefer dark windows while the returned connection is open."""
        peer = self.bus.peer()
        dark = GLib.Variant("(v)", (GLib.Variant("v", GLib.Variant("u", 1)),))
        peer.export(PORTAL_PATH, SETTINGS, {"Read": lambda sender, space, key: dark})
        peer.own(PORTAL)
        return peer

    def close(self):
        self.accessibility.close()
        for process in (self._manager, self._server):
            process.terminate()
            process.wait()
        self.bus.close()
        shutil.rmtree(self.root, ignore_errors=True)


class WaylandScreen:
    """An invisible Wayland screen without X11."""

    def __init__(self, scale):
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="zw-", dir="/tmp"))
        self.root.chmod(0o700)
        self.environment = {
            "PATH": os.environ["PATH"], "LANG": "C.UTF-8", "HOME": str(self.root),
            "XDG_RUNTIME_DIR": str(self.root), "WAYLAND_DISPLAY": "wayland-test",
            "DBUS_SESSION_BUS_ADDRESS": "unix:path=/nonexistent/bus"} | SANITIZERS
        self._server = subprocess.Popen(
            ["weston", "--backend=headless-backend.so", "--socket=wayland-test", "--use-pixman",
             f"--width={WIDTH}", f"--height={HEIGHT}", f"--scale={scale}", "--no-config", "--debug"],
            env={**self.environment, "WAYLAND_DISPLAY": ""}, stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        eventually((self.root / "wayland-test").exists, what="the screen")

    def dark_red_pixels(self):
        """Returns the number of pixels with the color of error messages."""
        subprocess.run(["weston-screenshooter"], env=self.environment, cwd=self.root, check=True,
                       capture_output=True, timeout=10)
        shot = next(self.root.glob("*.png"))
        pixels = subprocess.run(["convert", str(shot), "-depth", "8", "rgb:-"], check=True,
                                capture_output=True).stdout
        shot.unlink()
        return sum(pixels[i:i + 3] == b"\xd6\x2f\x2f" for i in range(0, len(pixels), 3))

    def close(self):
        self._server.terminate()
        self._server.wait()
        shutil.rmtree(self.root, ignore_errors=True)


def processor_seconds(pid):
    """Returns the processor time of a process. Unlike elapsed time it does not depend on the load of
    the machine."""
    try:
        fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rpartition(") ")[2].split()
    except (FileNotFoundError, ProcessLookupError):
        return 0.0
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


class Window:
    """A run of the program with its reports. `options` are those of the toolkit."""

    def __init__(self, screen, request, options=(), **environment):
        self.screen = screen
        self.reports = []
        self.costs = []  # of each report: processor time of the program until then, in seconds
        self.process = subprocess.Popen(
            [PROGRAM, *options], env={**screen.environment, **environment}, stdin=subprocess.PIPE,
            stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.errors = b""
        self._readers = [threading.Thread(target=self._read),
                         threading.Thread(target=self._read_errors)]
        for reader in self._readers:
            reader.start()
        self.send(request)

    def _read(self):
        for line in self.process.stdout:
            self.costs.append(processor_seconds(self.process.pid))
            self.reports.append(json.loads(line))

    def _read_errors(self):
        self.errors = self.process.stderr.read()

    def send(self, order):
        line = order if isinstance(order, str) else json.dumps(order)
        self.process.stdin.write(line.encode() + b"\n")
        self.process.stdin.flush()

    def report(self, key, limit=10.0):
        """Waits for a report of this kind."""
        def find():
            found = [report for report in self.reports if key in report]
            assert found or self.process.poll() is None or self._readers[0].is_alive(), \
                (self.reports, self.errors)
            return found
        return eventually(find, limit, f"a report of {key}")[0][key]

    def shown(self):
        """Waits until the window is on screen and has the focus."""
        assert self.report("shown") is True
        eventually(self.is_active, what="the focus")
        return self

    def is_active(self):
        return self.screen.active_process() == self.process.pid

    def reviewed(self):
        """Activates an unrequested window, and waits until it accepts input."""
        assert self.report("shown") is True
        self.screen.activate(self.process.pid)
        self.screen.accepting(self.process.pid)
        return self

    def answer(self):
        """Waits for the answer of an alert and for the end of its window."""
        answer = self.report("answer")
        assert self.ends() == 0
        return answer

    def ends(self, limit=10.0):
        status = self.process.wait(limit)
        for reader in self._readers:
            reader.join(limit)
        return status

    def accessible(self):
        return self.screen.accessibility.window_of(self.process.pid)

    def close(self):
        if self.process.poll() is None:
            self.process.kill()
        self.process.stdin.close()
        self.ends()
        self.process.stdout.close()
        self.process.stderr.close()


class Typing:
    """A user who types continuously, a key every 100 ms, in whatever window has the focus."""

    KEYS = "Tab space Left space Right space Return Tab Tab space Down Return Escape".split()

    def __init__(self, screen, keys=KEYS):
        self._screen, self._keys = screen, keys
        self._ends = threading.Event()
        self._thread = threading.Thread(target=self._type)
        self.count = 0

    def _type(self):
        while not self._ends.is_set():
            self._screen.run("xdotool", "key", "--delay", "0", self._keys[self.count % len(self._keys)])
            self.count += 1
            self._ends.wait(0.1)

    def __enter__(self):
        self._thread.start()
        return self

    def __exit__(self, *error):
        self._ends.set()
        self._thread.join()

    def types(self, keys):
        """Waits until that many more keys were pressed."""
        until = self.count + keys
        eventually(lambda: self.count >= until, what="keys")
