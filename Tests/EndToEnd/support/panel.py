"""A private screen with a real panel."""

import os
import pathlib
import shutil
import signal
import subprocess
import tempfile

from support.session_bus import SessionBus
from support.tray import eventually

WIDTH, HEIGHT, BAR = 800, 480, 28

CHANNEL = """<?xml version="1.0" encoding="UTF-8"?>
<channel name="xfce4-panel" version="1.0">
  <property name="configver" type="int" value="2"/>
  <property name="panels" type="array">
    <value type="int" value="1"/>
    <property name="dark-mode" type="bool" value="{dark}"/>
    <property name="panel-1" type="empty">
      <property name="position" type="string" value="p=6;x=0;y=0"/>
      <property name="length" type="uint" value="100"/>
      <property name="position-locked" type="bool" value="true"/>
      <property name="icon-size" type="uint" value="16"/>
      <property name="size" type="uint" value="{bar}"/>
      <property name="plugin-ids" type="array"><value type="int" value="1"/></property>
    </property>
  </property>
  <property name="plugins" type="empty">
    <property name="plugin-1" type="string" value="systray"/>
  </property>
</channel>
"""


class Picture:
    """A picture of a part of the screen."""

    def __init__(self, data):
        magic, width, height, depth, self.pixels = data.split(maxsplit=4)[:5]
        assert magic == b"P6" and depth == b"255"
        self.width, self.height = int(width), int(height)
        self.pixels = data[-3 * self.width * self.height:]

    def difference(self, other):
        """Returns the box around all differences (left, top, right, bottom), or None if there are none."""
        if self.pixels == other.pixels:
            return None
        boxes = [(i % self.width, i // self.width) for i in range(self.width * self.height)
                 if self.pixels[3 * i:3 * i + 3] != other.pixels[3 * i:3 * i + 3]]
        columns, lines = zip(*boxes)
        return min(columns), min(lines), max(columns), max(lines)


class Desktop:
    """A screen, a bus and a panel that shows status items."""

    def __init__(self, dark=True):
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="zp-", dir="/tmp"))
        settings = self.root / "config/xfce4/xfconf/xfce-perchannel-xml"
        settings.mkdir(parents=True)
        (settings / "xfce4-panel.xml").write_text(
            CHANNEL.format(dark=str(dark).lower(), bar=BAR))
        (self.root / "run").mkdir(mode=0o700)
        self.environment = {
            "PATH": os.environ["PATH"], "LANG": "C.UTF-8", "HOME": str(self.root),
            "XDG_CONFIG_HOME": str(self.root / "config"), "XDG_CACHE_HOME": str(self.root / "cache"),
            "XDG_DATA_HOME": str(self.root / "data"), "XDG_RUNTIME_DIR": str(self.root / "run"),
            "NO_AT_BRIDGE": "1", "GTK_THEME": "Adwaita:dark" if dark else "Adwaita"}
        self._start_screen()
        self.bus = SessionBus(self.environment).start()
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = self.bus.address
        self.panel = None

    def _start_screen(self):
        reader, writer = os.pipe()
        self.screen = subprocess.Popen(
            ["Xvfb", "-displayfd", str(writer), "-screen", "0", f"{WIDTH}x{HEIGHT}x24",
             "-nolisten", "tcp"], pass_fds=[writer], stdin=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL)
        os.close(writer)
        with os.fdopen(reader) as number:
            self.environment["DISPLAY"] = f":{number.readline().strip()}"

    def start_panel(self):
        log = open(self.root / "panel.log", "w")
        self.panel = subprocess.Popen(["xfce4-panel", "--disable-wm-check"], env=self.environment,
                                      stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                                      start_new_session=True)
        log.close()

    def kill_panel(self):
        os.killpg(self.panel.pid, signal.SIGKILL)
        self.panel.wait()

    def picture(self, height=HEIGHT):
        return Picture(subprocess.run(
            ["import", "-window", "root", "-crop", f"{WIDTH}x{height}+0+0", "+repage",
             "-depth", "8", "ppm:-"],
            env=self.environment, check=True, capture_output=True).stdout)

    def save_screenshot(self, path):
        subprocess.run(["import", "-window", "root", str(path)], env=self.environment, check=True)

    def until_it_differs(self, before, height=HEIGHT):
        """Waits until the screen has changed and is stable. Returns the picture and the box of the
        differences."""
        looks = []

        def at_rest():
            looks.append(self.picture(height))
            return (looks[-1].difference(before)
                    and len(looks) > 5 and all(not looks[-1].difference(each) for each in looks[-5:]))
        eventually(at_rest, 15, "a change on the screen")
        return looks[-1], looks[-1].difference(before)

    def click(self, x, y, button=1):
        subprocess.run(["xdotool", "mousemove", str(x), str(y), "click", str(button)],
                       env=self.environment, check=True)

    def point(self, x, y):
        subprocess.run(["xdotool", "mousemove", str(x), str(y)], env=self.environment, check=True)

    def press(self, *keys):
        subprocess.run(["xdotool", "key", *keys], env=self.environment, check=True)

    def close(self):
        if self.panel is not None and self.panel.poll() is None:
            self.kill_panel()
        self.bus.close()
        self.screen.terminate()
        self.screen.wait()
        shutil.rmtree(self.root, ignore_errors=True)
