"""A private terminal (tmux with its own socket) that a test types into and reads."""

import contextlib
import os
import re
import shlex
import signal
import subprocess

from support.tray import command_name, descendants, eventually, is_alive


def label(row):
    """Returns the text of a row of the menu, without mark and dot."""
    return row.lstrip("›").strip().removeprefix("● ")


class Terminal:
    """Runs one program, then waits. `screen` returns the visible text."""

    def __init__(self, world, *command, rows=24, columns=80, term="tmux-256color", **environment):
        self._socket = world.root / "tmux"
        self._seen = set()
        variables = {**world.environment, "TERM": term, **environment}
        assignments = [f"{name}={value}" for name, value in variables.items()]
        program = shlex.join(["env", "-i", *assignments, *map(str, command)])
        self._tmux("-f", "/dev/null", "new-session", "-d", "-x", str(columns), "-y", str(rows),
                   "-c", str(world.root), f"{program}; echo \"[ended: $?]\"; exec sleep 1000")
        self._tmux("set", "-s", "escape-time", "0", ";", "set", "-s", "set-clipboard", "on",
                   ";", "set", "-g", "status", "off")
        self.shell = int(self._tmux("display-message", "-p", "#{pane_pid}"))
        self._server = int(self._tmux("display-message", "-p", "#{pid}"))

    def _tmux(self, *arguments):
        answer = subprocess.run(["tmux", "-S", self._socket, *arguments], capture_output=True,
                                text=True, timeout=10, env={"PATH": "/usr/bin:/bin", "LANG": "C.UTF-8"})
        assert answer.returncode == 0, answer.stderr
        return answer.stdout

    @property
    def pid(self):
        """The process id of the program named zephyl-tray."""
        def find():
            self._seen.update(descendants(self.shell))
            return next((pid for pid in self._seen
                         if command_name(pid) == "zephyl-tray" and is_alive(pid)), None)
        return eventually(find, what="a tray in the terminal")

    def screen(self, attributes=False):
        return self._tmux("capture-pane", "-p", *(["-e"] if attributes else []))

    def press(self, *keys):
        """Presses keys by tmux's names: Up, Enter, Escape, C-l, and characters."""
        self._tmux("send-keys", *keys)

    def type(self, text):
        self._tmux("send-keys", "-l", text)

    def paste(self, text):
        self._tmux("set-buffer", text)
        self._tmux("paste-buffer", "-p")

    def resize(self, columns, rows):
        self._tmux("resize-window", "-x", str(columns), "-y", str(rows))

    def click(self, text):
        """Sends a press of the left mouse button on a text, like a terminal."""
        lines = self.see(text).split("\n")
        row = next(index for index, line in enumerate(lines) if text in line)
        self.type(f"\x1b[<0;{lines[row].index(text) + 1};{row + 1}M")

    def clipboard(self):
        return self._tmux("show-buffer")

    def see(self, *texts, limit=10.0):
        """Waits until all texts are on the screen, and returns its contents."""
        found = ""

        def is_there():
            nonlocal found
            found = self.screen()
            return all(text in found for text in texts)
        try:
            eventually(is_there, limit)
        except AssertionError as error:
            raise AssertionError(f"no {texts!r} in\n{found}") from error
        return found

    def miss(self, text, limit=10.0):
        """Waits until a text has disappeared from the screen."""
        try:
            eventually(lambda: text not in self.screen(), limit)
        except AssertionError as error:
            raise AssertionError(f"still {text!r} in\n{self.screen()}") from error

    def choose(self, text):
        """Chooses the row of the menu that begins with a text."""
        self.go_to(text)
        self.press("Enter")

    def go_to(self, text):
        self.see(text)
        for _ in range(60):
            if not self._chosen():
                self.press("Home")
            chosen = eventually(self._chosen, what="the menu")
            if chosen.startswith(text):
                return
            # Waits after each key, because the screen changes asynchronously.
            self.press("Down" if self._is_below(text) else "Up")
            eventually(lambda chosen=chosen: self._chosen() not in ("", chosen),
                       what=f"a row beside {chosen!r}")
        raise AssertionError(f"{text!r} cannot be chosen in\n{self.screen()}")

    def _is_below(self, text):
        """Returns whether a row of the menu is below the selected one."""
        rows = self.screen().split("\n")
        chosen = next((at for at, row in enumerate(rows) if row.startswith("›")), 0)
        return any(label(row).startswith(text) for row in rows[chosen:])

    def _chosen(self):
        """Returns the selected row without mark and dot, empty if there is none."""
        return next((label(row) for row in self.screen().split("\n") if row.startswith("›")), "")

    def answer(self, button):
        """Answers the open box with a button."""
        eventually(self._marked_button, what="a box that accepts input")
        for _ in range(10):
            if self._marked_button() == button:
                break
            before = self._focus()
            self.press("Tab")
            eventually(lambda before=before: self._focus() != before, what="another button")
        assert self._marked_button() == button
        self.press("Enter")

    def _focus(self):
        """Returns whether a text field has the cursor, and the marked button."""
        return self._tmux("display-message", "-p", "#{cursor_flag}"), self._marked_button()

    def _marked_button(self):
        found = re.search(r"\[›(.+?) \]", self.screen())
        return found.group(1) if found else ""

    def start_recording(self, path):
        """Appends all further output on the terminal to a file."""
        self._tmux("pipe-pane", "-o", f"cat >> {shlex.quote(str(path))}")

    def has_second_screen(self):
        return self._tmux("display-message", "-p", "#{alternate_on}").strip() == "1"

    def settings(self):
        """Returns the settings of the terminal, as printed by stty."""
        device = self._tmux("display-message", "-p", "#{pane_tty}").strip()
        return subprocess.run(["stty", "-a", "-F", device], capture_output=True, text=True,
                              check=True, timeout=10).stdout.split()

    def stop_reading(self):
        """Stops reading the program's output until `read_on`."""
        os.kill(self._server, signal.SIGSTOP)

    def read_on(self):
        os.kill(self._server, signal.SIGCONT)

    def hang_up(self):
        """Closes the terminal, like a broken connection."""
        self._seen.update(descendants(self.shell))
        self._tmux("kill-server")

    def close(self):
        """Ends the terminal and the programs in it."""
        self._seen.update(descendants(self.shell))
        with contextlib.suppress(ProcessLookupError):
            self.read_on()
        subprocess.run(["tmux", "-S", self._socket, "kill-server"], capture_output=True, timeout=10,
                       check=False)
        trays = [pid for pid in self._seen if command_name(pid) == "zephyl-tray"]
        for pid in trays:
            subprocess.run(["kill", "-TERM", str(pid)], capture_output=True, check=False)
        for pid in self._seen:
            eventually(lambda pid=pid: not is_alive(pid), 15, what=f"the end of process {pid}")
