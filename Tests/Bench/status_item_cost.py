#!/usr/bin/env python3
"""Measures the status item without the rest of the tray.

    Tests/Bench/status_item_cost.py [SECONDS]

Runs build/status-item-demo, which contains only the desktop adapter, the reactor and the guardian.
Prints the times from exec to the registered item of 20 starts, and the memory, threads, processor
time and context switches of the last one while it is idle for SECONDS (default: 20) after a host has
read its menu.
"""

import json
import os
import pathlib
import statistics
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "EndToEnd"))

from idle_cost import context_switches, cpu_seconds, memory, status_field  # noqa: E402
from support.session_bus import SessionBus, Watcher  # noqa: E402
from support.status_item_demo import SAMPLE  # noqa: E402
from support.tray import BUILD, descendants  # noqa: E402


def start(bus):
    """Starts a status item whose menu is already in its standard input. Returns the process, the
    writing end of its standard input and the time of the start. The item ends when it is closed."""
    reader, writer = os.pipe()
    os.write(writer, json.dumps({"do": "menu", "menu": SAMPLE}).encode() + b"\n")
    begin = time.monotonic()
    process = subprocess.Popen([BUILD / "status-item-demo"], stdin=reader,
                               env={**os.environ, "DBUS_SESSION_BUS_ADDRESS": bus.address})
    os.close(reader)
    return process, writer, begin


def main():
    seconds = float(sys.argv[1]) if len(sys.argv) > 1 else 20
    bus = SessionBus().start()
    watcher = Watcher(bus.peer())
    took = []
    for number in range(1, 21):
        process, writer, begin = start(bus)
        item = watcher.item(number)
        took.append((watcher.times[number - 1] - begin) * 1000)
        if number < 20:
            os.close(writer)
            process.wait()
    print(f"exec to registered: {min(took):.1f} ms at least, {statistics.median(took):.1f} ms as "
          f"median, {max(took):.1f} ms at most, of {len(took)} starts")
    item.properties()
    item.layout()
    time.sleep(1)
    before = cpu_seconds(process.pid), context_switches(process.pid)
    time.sleep(seconds)
    used = cpu_seconds(process.pid) - before[0]
    switches = context_switches(process.pid) - before[1]
    pss, private = memory(process.pid)
    print(f"{pss} kB proportional, {private} kB private, {status_field(process.pid, 'Threads')} threads")
    for child in descendants(process.pid):
        print(f"guardian: {memory(child)[0]} kB proportional")
    print(f"{used * 1000:.3f} ms of processor time and {switches} context switches in {seconds:.0f} s")
    os.close(writer)
    process.wait()
    bus.close()


if __name__ == "__main__":
    main()
