#!/usr/bin/env python3
"""Compares the cost of the tray with that of other programs with a status item, in one run.

    Tests/Bench/tray_cost.py [SECONDS]

Starts each program alone on a private screen and bus with an empty configuration. Prints the time
from exec to the registered item (median of five starts), the proportional and private memory, the
threads, and the processor time and context switches over SECONDS idle seconds (default: 30). Skips
programs that are not installed. Needs Xvfb and dbus-daemon.
"""

import pathlib
import shutil
import statistics
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "EndToEnd"))

from idle_cost import context_switches, cpu_seconds, memory  # noqa: E402
from support.control_api import Window  # noqa: E402
from support.panel import Desktop  # noqa: E402
from support.scripted_agent import ScriptedAgent  # noqa: E402
from support.session_bus import Watcher  # noqa: E402
from support.tray import World, eventually  # noqa: E402

OTHERS = {
    "nm-applet": ["nm-applet", "--indicator"],
    "kdeconnect-indicator": ["kdeconnect-indicator"],
    "syncthingtray": ["syncthingtray", "--single-instance"],
}
STARTS = 5


class Started:
    """Owns a process on a private screen and a bus with a watcher. `delay` is the time in milliseconds
    from exec to the registered item."""

    def __init__(self, command, environment):
        self.desktop = Desktop()
        self.watcher = Watcher(self.desktop.bus.peer())
        begin = time.monotonic()
        self.process = subprocess.Popen(
            command, env=environment | self.desktop.environment, stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        eventually(lambda: self.watcher.items, 20, "a registered item")
        self.delay = 1000 * (self.watcher.times[0] - begin)

    def close(self):
        self.process.terminate()
        try:
            self.process.wait(10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.desktop.close()


def start_times(command, environment):
    """Returns the milliseconds from exec to the registered item, of STARTS starts."""
    delays = []
    for _ in range(STARTS):
        started = Started(command, environment)
        delays.append(started.delay)
        started.close()
    return delays


def measure(name, command, environment, seconds):
    """Prints one row of the table."""
    delay = statistics.median(start_times(command, environment))
    started = Started(command, environment)
    pid = started.process.pid
    time.sleep(5)
    cpu, switches = cpu_seconds(pid), context_switches(pid)
    time.sleep(seconds)
    cpu, switches = cpu_seconds(pid) - cpu, context_switches(pid) - switches
    proportional, private = memory(pid)
    threads = len(list(pathlib.Path(f"/proc/{pid}/task").iterdir()))
    started.close()
    print(f"{name:22} {delay:7.1f} ms {proportional / 1000:7.1f} MB {private / 1000:7.1f} MB "
          f"{threads:4} {1000 * cpu / seconds:8.2f} ms/s {switches / seconds:8.1f} /s", flush=True)


def main():
    seconds = float(sys.argv[1]) if len(sys.argv) > 1 else 30
    print(f"{'':22} {'to item':>10} {'proportional':>10} {'private':>10} {'threads':>4} "
          f"{'processor':>10} {'switches':>8}")
    world = World()
    Window(world)
    agent = ScriptedAgent(world.agent_port)
    agent.answers["/api/events"] = agent.hang
    try:
        measure("zephyl-tray", [world.prefix / "bin" / "zephyl-tray"], world.environment, seconds)
    finally:
        agent.close()
        world.remove()
    for name, command in OTHERS.items():
        if shutil.which(command[0]):
            measure(name, command, {}, seconds)


if __name__ == "__main__":
    main()
