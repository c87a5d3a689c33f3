#!/usr/bin/env python3
"""Measures a tray with ten servers whose agent sends 1,000 activity events a second.

    Tests/Bench/activity_flood.py [SECONDS]

Runs for SECONDS (default: 60). Prints the processor time, the D-Bus signals per second, and the
resident memory before and after.
"""

import pathlib
import re
import sys
import threading
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "EndToEnd"))

from idle_cost import cpu_seconds  # noqa: E402
from support.control_api import Window  # noqa: E402
from support.scripted_agent import ScriptedAgent  # noqa: E402
from support.session_bus import SessionBus, Watcher  # noqa: E402
from support.tray import Tray, World  # noqa: E402
from test_tray_on_a_desktop import stream  # noqa: E402


def resident_memory(pid):
    """Returns the resident memory in kB."""
    return int(re.search(r"VmRSS:\s+(\d+)", pathlib.Path(f"/proc/{pid}/status").read_text())[1])


def main():
    seconds = float(sys.argv[1]) if len(sys.argv) > 1 else 60
    world, bus = World(), SessionBus().start()
    world.environment["DBUS_SESSION_BUS_ADDRESS"] = bus.address
    world.add_servers(10)
    Window(world)
    agent, stopping = ScriptedAgent(world.agent_port), threading.Event()
    stream(agent, 1000, stopping)
    watcher = Watcher(bus.peer())
    tray = Tray(world, "--desktop")
    try:
        item = watcher.item()
        item.properties()  # the tray sends signals only to a host that has read item and menu
        item.layout()
        time.sleep(3)
        used, memory, signals = cpu_seconds(tray.pid), resident_memory(tray.pid), len(item.signals())
        time.sleep(seconds)
        print(f"{100 * (cpu_seconds(tray.pid) - used) / seconds:.1f} % of a core, "
              f"{(len(item.signals()) - signals) / seconds:.2f} signals per second, resident memory "
              f"{memory} kB before and {resident_memory(tray.pid)} kB after")
    finally:
        stopping.set()
        tray.stop()
        tray.close()
        agent.close()
        bus.close()
        world.remove()


if __name__ == "__main__":
    main()
