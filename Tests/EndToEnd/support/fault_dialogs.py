"""A replacement of the dialogs program, which answers prompts as a file tells it, and records them."""

import json

# The contents of the file:
#   deny, allow   answer after a moment
#   wait          show the window and wait until the file changes
#   hang          show the window and do not answer pings; the tray may deny the request then
#   die           exit with a failure
#   garbage       print a line that is not JSON
PROGRAM = """#!/usr/bin/python3 -IS
import json, os, select, sys, time
root = {root!r}
def mode():
    with open(root + "/dialogs-mode") as file:
        return file.read().strip()
def report(**message):
    print(json.dumps(message), flush=True)
def record(kind):
    with open(root + "/dialogs-record", "a") as file:
        file.write(json.dumps([kind, request]) + "\\n")
request = json.loads(sys.stdin.buffer.readline() or b"{{}}")
if mode() == "die":
    sys.exit(3)
if mode() == "garbage":
    print("this is no report", flush=True)
report(shown=True)
os.set_blocking(0, False)
begun, pending, hangs = time.monotonic(), b"", False
while True:
    readable, _, _ = select.select([0], [], [], 0.05)
    piece = os.read(0, 65536) if readable else None
    if piece == b"":
        break
    if mode() == "hang":
        if not hangs:
            record("hang")
        hangs = True
        continue
    *lines, pending = (pending + (piece or b"")).split(b"\\n")
    orders = [json.loads(line) for line in lines]
    for order in orders:
        if "ping" in order:
            report(pong=order["ping"])
    if any("close" in order for order in orders):
        break
    if mode() in ("deny", "allow") and time.monotonic() > begun + 0.1:
        if "logWindow" in request:
            report(logEvent="closed")
        else:
            record(mode())
            report(answer={{"button": 0 if mode() == "deny" else 1, "text": ""}})
        break
"""


class FaultDialogs:
    """Installs the program in place of the dialogs program."""

    MODES = ("deny", "allow", "wait", "hang", "die", "garbage")

    def __init__(self, world):
        self._mode = world.root / "dialogs-mode"
        self._record = world.root / "dialogs-record"
        self.set("deny")
        self._record.touch()
        program = world.prefix / "libexec" / "zephyl-tray" / "zephyl-tray-dialogs"
        program.parent.mkdir(parents=True, exist_ok=True)
        program.write_text(PROGRAM.format(root=str(world.root)))
        program.chmod(0o755)

    def set(self, mode):
        new = self._mode.with_suffix(".new")
        new.write_text(mode)
        new.replace(self._mode)

    def answers(self, kind, target):
        """Returns how often a prompt for this target was answered in this way, or hung."""
        records = map(json.loads, self._record.read_text().splitlines())
        return sum(answer == kind and target in json.dumps(request) for answer, request in records)
