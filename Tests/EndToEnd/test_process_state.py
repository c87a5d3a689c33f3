"""A tray started with closed descriptors, unusual signal states or low limits works normally."""

import os
import resource
import signal
import subprocess
import sys

import pytest

from support.control_api import Window
from support.other_user import USER, as_other_user, skip_unless_root
from support.tray import (command_line, command_name, descendants, eventually, is_alive,
                          without_sanitizers)

# Changes the process according to the first argument, then executes the tray.
STARTER = """
import os, resource, signal, sys
exec(sys.argv[1])
os.execv(sys.argv[2], sys.argv[2:])
"""


class OddTray:
    def __init__(self, world, change, **options):
        self.window = Window(world)
        self.process = subprocess.Popen(
            [sys.executable, "-c", STARTER, change, world.prefix / "bin/zephyl-tray", "--headless"],
            env=world.environment, cwd=world.root, stdin=subprocess.DEVNULL, **options)
        self.pid = self.process.pid

    def has_all_children(self):
        children = descendants(self.pid)
        names = [command_name(pid) for pid in children]
        lines = [command_line(pid) for pid in children]
        return "zephyl-guardian" in names and any("sleep 2000" in line for line in lines) \
            and any("sleep 1000" in line for line in lines)

    def close(self):
        if self.process.poll() is None:
            left = descendants(self.pid)
            self.process.kill()
            self.process.wait()
            for pid in left:
                eventually(lambda pid=pid: not is_alive(pid))


@pytest.fixture(name="start")
def fixture_start(world):
    world.use_agent_script("#!/bin/sh\nexec sleep 2000\n")
    trays = []

    def start(change, **options):
        trays.append(OddTray(world, change, **options))
        return trays[-1]

    yield start
    for tray in trays:
        tray.close()


@pytest.mark.parametrize("closed", [[0], [1], [2], [0, 1, 2]])
def test_closed_descriptors(world, start, closed):
    tray = start("".join(f"os.close({number});" for number in closed))
    eventually(tray.has_all_children, what="guardian, agent and window")
    for number in (0, 1, 2):
        assert os.readlink(f"/proc/{tray.pid}/fd/{number}") != str(world.base / "tray.lock")
        if number in closed:
            assert os.readlink(f"/proc/{tray.pid}/fd/{number}") == "/dev/null"
    assert (world.base / "tray.lock").read_text() == f"{tray.pid}\n"
    # Regression: a log line once reached the guardian, which then ended the children.
    tray.process.send_signal(signal.SIGTERM)
    assert tray.process.wait(10) == 0


def test_ignored_end_of_children(world, start):
    world.use_agent_script("#!/bin/sh\nexit 3\n")
    log = open(world.root / "log", "w+b")
    tray = start("signal.signal(signal.SIGCHLD, signal.SIG_IGN)", stderr=log)
    eventually(lambda: "agent exited with status 3" in (world.root / "log").read_text(), what="the exit status")
    tray.process.send_signal(signal.SIGTERM)
    assert tray.process.wait(10) == 0
    log.close()


def test_blocked_signals(start):
    tray = start("signal.pthread_sigmask(signal.SIG_BLOCK, signal.valid_signals())")
    eventually(tray.has_all_children, what="guardian, agent and window")
    tray.process.send_signal(signal.SIGTERM)
    assert tray.process.wait(10) == 0


def test_a_hang_up_signal_ends_it_unless_it_was_ignored(start):
    tray = start("")
    eventually(tray.has_all_children, what="guardian, agent and window")
    tray.process.send_signal(signal.SIGHUP)
    assert tray.process.wait(10) == 0
    tray = start("signal.signal(signal.SIGHUP, signal.SIG_IGN)")
    eventually(tray.has_all_children, what="guardian, agent and window")
    tray.process.send_signal(signal.SIGHUP)
    with pytest.raises(subprocess.TimeoutExpired):
        tray.process.wait(1)
    tray.process.send_signal(signal.SIGTERM)
    assert tray.process.wait(10) == 0


def test_the_limit_of_descriptors_is_raised_only_for_the_tray(start):
    tray = start("resource.setrlimit(resource.RLIMIT_NOFILE, (256, 4096))")
    eventually(tray.has_all_children, what="guardian, agent and window")
    assert resource.prlimit(tray.pid, resource.RLIMIT_NOFILE) == (4096, 4096)
    children = [pid for pid in descendants(tray.pid) if command_name(pid) == "sleep"]
    assert len(children) == 2
    for pid in children:
        assert resource.prlimit(pid, resource.RLIMIT_NOFILE) == (256, 4096)
    tray.process.send_signal(signal.SIGTERM)
    assert tray.process.wait(10) == 0


def test_a_blocked_standard_error_does_not_stop_it(world, start):
    reading, writing = os.pipe()
    os.set_blocking(writing, False)
    while True:
        try:
            os.write(writing, b"x" * 4096)
        except BlockingIOError:
            break
    os.set_blocking(writing, True)
    try:
        tray = start("", stderr=writing)
        os.close(writing)
        eventually(tray.has_all_children, what="guardian, agent and window")
        tray.process.send_signal(signal.SIGTERM)
        assert tray.process.wait(10) == 0
    finally:
        os.close(reading)


# Prints lines without starting a process.
CHATTER = """#!/bin/sh
exec {python} -c "
import time
while True:
    print('a line', flush=True)
    time.sleep(0.02)
"
"""


@without_sanitizers("the search for leaks needs a process of its own")
def test_it_survives_reaching_its_limit_of_processes(world):
    skip_unless_root()
    world.use_agent_script(CHATTER.format(python=sys.executable))
    for directory in (world.root, world.prefix):
        directory.chmod(0o755)
    world.home.chmod(0o700)
    os.chown(world.home, USER, USER)
    tray = subprocess.Popen(as_other_user(world.prefix / "bin/zephyl-tray", "--headless"), cwd="/",
                            env=world.environment, stdin=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    try:
        eventually(lambda: any("a line" in command_line(pid) for pid in descendants(tray.pid)), what="an agent")
        subprocess.run(as_other_user("prlimit", f"--pid={tray.pid}", "--nproc=1:1"), check=True)
        with pytest.raises(subprocess.TimeoutExpired):
            tray.wait(2)
        tray.terminate()
        _, log = tray.communicate(timeout=10)
    finally:
        tray.kill()
    assert tray.returncode == 0, log
