#!/usr/bin/env python3
"""Measures an idle tray with a responding agent.

    Tests/Bench/idle_cost.py [SECONDS]

Starts a tray, waits 3 s and measures it for SECONDS (default: 20). Prints the proportional and
private memory (smaps_rollup) of the tray and its child processes, and the number of threads, the
processor time (schedstat) and the context switches of the tray.
"""

import os
import pathlib
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "EndToEnd"))

from support.scripted_agent import ScriptedAgent  # noqa: E402
from support.tray import Tray, World, command_name, descendants  # noqa: E402


def memory(pid):
    """Returns the proportional and the private memory in kB."""
    fields = {}
    for line in pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text().splitlines()[1:]:
        name, value = line.split(":")
        fields[name] = int(value.split()[0])
    return fields["Pss"], fields["Private_Clean"] + fields["Private_Dirty"]


def status_field(pid, name):
    """Returns a number of /proc/PID/status. Raises KeyError if there is no such field."""
    for line in pathlib.Path(f"/proc/{pid}/status").read_text().splitlines():
        if line.startswith(name + ":"):
            return int(line.split()[1])
    raise KeyError(name)


def cpu_seconds(pid):
    """Returns the processor time of all threads, which has nanosecond precision."""
    total = 0
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        total += int((task / "schedstat").read_text().split()[0])
    return total / 1e9


def context_switches(pid):
    """Returns the voluntary and involuntary context switches of all threads."""
    total = 0
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        for line in (task / "status").read_text().splitlines():
            if "ctxt_switches" in line:
                total += int(line.split()[1])
    return total


def main():
    seconds = float(sys.argv[1]) if len(sys.argv) > 1 else 20
    world = World()
    agent = ScriptedAgent(world.agent_port)
    agent.answers["/api/events"] = agent.hang
    tray = Tray(world)
    try:
        tray.log_line("reachable")
        time.sleep(3)
        before = cpu_seconds(tray.pid), context_switches(tray.pid)
        time.sleep(seconds)
        used = cpu_seconds(tray.pid) - before[0]
        switches = context_switches(tray.pid) - before[1]
        pss, private = memory(tray.pid)
        print(f"tray: {pss} kB proportional, {private} kB private, "
              f"{status_field(tray.pid, 'Threads')} threads")
        for pid in descendants(tray.pid):
            print(f"{command_name(pid)}: {memory(pid)[0]} kB proportional, {memory(pid)[1]} kB private")
        print(f"{used / seconds * 1000:.3f} ms of processor time and {switches / seconds:.1f} context "
              f"switches per second over {seconds:.0f} s")
    finally:
        tray.stop()
        agent.close()
        world.remove()


if __name__ == "__main__":
    main()
