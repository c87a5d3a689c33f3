"""The tray as a service of the user's session, and its notifications to the service manager."""

import json
import os
import pathlib
import signal
import subprocess

import pytest

from support.service_manager import ServiceManager
from support.session_bus import Watcher
from support.tray import command_name, descendants, eventually, is_alive, processes_of
from support.updates import Publisher, set_up


@pytest.fixture
def manager(world):
    manager = ServiceManager(world)
    yield manager
    manager.close()


@pytest.fixture
def watching_manager(world):
    manager = ServiceManager(world, watchdog=0.4)
    yield manager
    manager.close()


def environment_of(pid):
    variables = pathlib.Path(f"/proc/{pid}/environ").read_bytes().decode().split("\0")
    return dict(each.split("=", 1) for each in variables if "=" in each)


def test_it_reports_readiness_and_its_end(world, start_tray, manager):
    world.use_agent_script("#!/bin/sh\nexec sleep 1000\n")
    tray = start_tray()
    manager.until("READY=1")
    assert manager.states == ["READY=1"]
    assert tray.stop() == 0
    assert manager.states == ["READY=1", "STOPPING=1"]


def test_its_children_do_not_get_the_service_managers_variables(world, start_tray, watching_manager):
    world.use_agent_script("#!/bin/sh\nexec sleep 1000\n")
    tray = start_tray()
    agent, = eventually(lambda: [pid for pid in descendants(tray.pid)
                                 if command_name(pid) == "sleep"], what="the agent")
    assert not {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"} & environment_of(agent).keys()
    assert not any(os.readlink(link).endswith("notify")
                   for link in pathlib.Path(f"/proc/{agent}/fd").iterdir())


def test_it_feeds_the_watchdog_unless_it_hangs(world, start_tray, watching_manager):
    world.use_agent_script("#!/bin/sh\nexec sleep 1000\n")
    tray = start_tray()
    watching_manager.until("WATCHDOG=1", 3)
    os.kill(tray.pid, signal.SIGSTOP)
    eventually(lambda: pathlib.Path(f"/proc/{tray.pid}/stat").read_text().split(")")[1].split()[0]
               == "T", what="a stopped tray")
    fed = watching_manager.states.count("WATCHDOG=1")
    os.kill(tray.pid, signal.SIGCONT)
    watching_manager.until("WATCHDOG=1", fed + 2)
    assert tray.stop() == 0


def test_a_failed_start_is_never_ready(world, start_tray, manager):
    set_up(world, onboardingPort=99999)
    assert start_tray().wait() == 1
    assert manager.states == ["STOPPING=1"]


def test_a_second_start_that_activates_the_first_succeeds(world, start_tray, bus):
    watcher = Watcher(bus.peer())
    world.use_agent_script("#!/bin/sh\nexec sleep 1000\n")
    start_tray("--desktop")
    watcher.item()
    manager = ServiceManager(world)
    try:
        second = subprocess.run([world.prefix / "bin" / "zephyl-tray"], env=world.environment,
                                capture_output=True, text=True, timeout=10)
        assert second.returncode == 0, second.stderr
        assert manager.states == ["READY=1"]
    finally:
        manager.close()


def test_an_update_in_place_stays_the_same_service(world, start_tray):
    manager = ServiceManager(world, watchdog=30)
    publisher = Publisher(world)
    try:
        publisher.install("1.0")
        set_up(world, SUScheduledCheckInterval=720, SUAutomaticallyUpdate=1)
        publisher.publish(publisher.pack(publisher.copy("2.0")))
        tray = start_tray()
        tray.log_line("version 2.0 is confirmed", limit=30)
        manager.until("READY=1", 2)
        assert manager.states == ["READY=1", "RELOADING=1", "WATCHDOG=1", "READY=1"]
        assert "was updated" not in json.dumps(tray.lines), "it restarts without the user"
        assert tray.stop() == 0
        assert manager.states[-1] == "STOPPING=1"
    finally:
        publisher.close()
        manager.close()
        for pid in processes_of(world.prefix):
            os.kill(pid, signal.SIGKILL)
            eventually(lambda pid=pid: not is_alive(pid), 15)
