"""A private X screen with a pointer and a keyboard."""

import os
import pathlib
import subprocess
import time

from support.panel import Picture
from support.tray import eventually

WIDTH, HEIGHT = 1280, 800


class Screen:
    """Owns an X server. All coordinates and pictures are those of a monitor of WIDTH by HEIGHT pixels
    for any scale. The server has room for other monitors to the right of it. Sets DISPLAY in
    `environment`."""

    def __init__(self, environment, scale=1.0, monitors=1):
        self.environment, self.scale = environment, scale
        reader, writer = os.pipe()
        width, height = int(WIDTH * scale), int(HEIGHT * scale)
        size = f"{width * monitors}x{height}x24"
        self._server = subprocess.Popen(
            ["Xvfb", "-displayfd", str(writer), "-screen", "0", size, "-nolisten", "tcp",
             "+extension", "GLX", "+extension", "RANDR", "-noreset", "-ac"],
            pass_fds=[writer], stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(writer)
        with os.fdopen(reader) as number:
            environment["DISPLAY"] = f":{number.readline().strip()}"

    def run(self, *command, limit=20):
        """Returns the standard output of a command, also if it fails."""
        done = subprocess.run(command, env=self.environment, capture_output=True, text=True,
                              timeout=limit, stdin=subprocess.DEVNULL)
        return done.stdout

    def picture(self, area=None):
        """Returns a picture of an area: left, top, width and height (default: the whole screen)."""
        left, top, width, height = area or (0, 0, WIDTH, HEIGHT)
        pixels = [round(each * self.scale) for each in (width, height, left, top)]
        cut = ["-crop", "{}x{}+{}+{}".format(*pixels), "+repage"]
        if self.scale != 1:
            cut += ["-resize", f"{width}x{height}!"]
        return Picture(subprocess.run(["import", "-window", "root", *cut, "-depth", "8", "ppm:-"],
                                      env=self.environment, check=True, capture_output=True,
                                      timeout=20).stdout)

    def save(self, path):
        """Writes a picture of the whole screen, in its real size, to a file."""
        pathlib.Path(path).unlink(missing_ok=True)
        self.run("import", "-window", "root", str(path))

    def at_rest(self, area=None, repeats=4, limit=30.0):
        """Waits until `repeats` + 1 successive pictures of an area are equal, and returns the last."""
        pictures = []

        def rests():
            pictures.append(self.picture(area))
            time.sleep(0.15)
            return len(pictures) > repeats and all(
                not pictures[-1].difference(each) for each in pictures[-repeats - 1:-1])
        eventually(rests, limit, "a screen at rest")
        return pictures[-1]

    def change(self, before, area=None, limit=10.0, rests=True):
        """Waits until an area differs from a picture. Then waits until it is at rest or, if `rests` is
        false, for 1.5 s. Returns the box that differs, in coordinates of the screen."""
        eventually(lambda: self.picture(area).difference(before), limit, "a change on the screen")
        if rests:
            now = self.at_rest(area)
        else:
            time.sleep(1.5)
            now = self.picture(area)
        box = now.difference(before)
        assert box is not None, "the change on the screen was reverted"
        left, top = (area or (0, 0))[:2]
        return box[0] + left, box[1] + top, box[2] + left, box[3] + top

    def point(self, x, y):
        self.run("xdotool", "mousemove", str(round(x * self.scale)), str(round(y * self.scale)))

    def click(self, x, y, button=1):
        self.point(x, y)
        time.sleep(0.3)  # some panels animate the item under the pointer
        self.run("xdotool", "click", str(button))

    def press(self, *keys, delay=0.3):
        """Presses keys with pauses, because some menus lose keys while they open."""
        for key in keys:
            self.run("xdotool", "key", key)
            time.sleep(delay)

    def type(self, text, delay=60):
        self.run("xdotool", "type", "--delay", str(delay), text)

    def windows_of(self, pid):
        """Returns the ids of a process's visible windows, always empty on a Wayland desktop."""
        return self.run("xdotool", "search", "--onlyvisible", "--all", "--pid", str(pid), "--name",
                        "").split()

    def activate(self, title):
        """Waits for a window with this title and activates it, like a click in a task bar."""
        def find():
            return self.run("xdotool", "search", "--onlyvisible", "--name", title).split()
        windows = eventually(find, what=f"a window {title!r}")
        self.run("xdotool", "windowactivate", "--sync", windows[-1])

    def close(self):
        self._server.terminate()
        self._server.wait()


def middle(box):
    """Returns the center of a box (left, top, right, bottom)."""
    return (box[0] + box[2]) // 2, (box[1] + box[3]) // 2


class Cut:
    """A part of a picture, which `find` searches in other pictures of the same height."""

    def __init__(self, picture, box):
        self.left, self.top, self.right, self.bottom = box
        self._lines = self._cut(picture, self.left)

    def _cut(self, picture, left):
        size = 3 * (self.right - self.left + 1)
        starts = (3 * (line * picture.width + left) for line in range(self.top, self.bottom + 1))
        return [picture.pixels[start:start + size] for start in starts]

    def find(self, picture):
        """Returns the horizontal center of the leftmost match, or None if there is no match."""
        width = self.right - self.left
        for left in range(picture.width - width):
            if self._cut(picture, left) == self._lines:
                return left + width // 2
        return None
