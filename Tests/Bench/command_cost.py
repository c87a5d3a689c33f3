#!/usr/bin/env python3
"""Measures how long commands run, from start to exit, with a running tray and a responding agent.

    Tests/Bench/command_cost.py [RUNS]

Runs each command RUNS times (default: 30) and prints its shortest, median and longest time.
"""

import pathlib
import statistics
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1] / "EndToEnd"))

from support.scripted_agent import ScriptedAgent  # noqa: E402
from support.tray import Tray, World  # noqa: E402

COMMANDS = (["status"], ["servers"], ["requests"], ["diagnostics"], ["defaults", "read"], ["doctor"])


def milliseconds(world, command):
    """Returns the run time of one command."""
    begin = time.perf_counter()
    subprocess.run([world.prefix / "bin" / "zephyl-tray", *command], env=world.environment,
                   stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return 1000 * (time.perf_counter() - begin)


def main():
    runs = int(sys.argv[1]) if len(sys.argv) > 1 else 30
    world = World()
    agent = ScriptedAgent(world.agent_port)
    agent.answers["/api/events"] = agent.hang
    tray = Tray(world)
    try:
        tray.log_line("reachable")
        for command in COMMANDS:
            times = sorted(milliseconds(world, command) for _ in range(runs))
            print(f"{' '.join(command):<14} {times[0]:5.1f} {statistics.median(times):5.1f} "
                  f"{times[-1]:5.1f} ms")
    finally:
        tray.stop()
        agent.close()
        world.remove()


if __name__ == "__main__":
    main()
