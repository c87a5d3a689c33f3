"""A program that shows status items, with the name of a real one."""

import os
import pathlib
import subprocess
import tempfile

from support.session_bus import Item

SUPPORT = pathlib.Path(__file__).resolve().parents[1]

# The kernel names a script's process after the script.
PROGRAM = """#!/usr/bin/python3
import sys
from support.session_bus import GLib, Peer, Watcher

class Printing(Watcher):
    def _register(self, sender, service):
        print(sender, service, flush=True)

Printing(Peer(sys.argv[1]))
GLib.MainLoop().run()
"""


class PanelProgram:
    """Owns the name of the watcher until `close`."""

    def __init__(self, bus, name):
        self._directory = tempfile.TemporaryDirectory(prefix="zn-")
        program = pathlib.Path(self._directory.name) / name
        program.write_text(PROGRAM)
        program.chmod(0o755)
        self._process = subprocess.Popen(
            [program, bus.address], env={**os.environ, "PYTHONPATH": str(SUPPORT)},
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True)
        self._peer = bus.peer()

    def item(self):
        """Waits for a registration and returns the item."""
        return Item(self._peer, *self._process.stdout.readline().split())

    def close(self):
        self._process.kill()
        self._process.wait()
        self._process.stdout.close()
        self._directory.cleanup()
