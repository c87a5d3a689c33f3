"""A tray that is asked to end while an update is on trial ends, and the update has not failed."""

import fcntl
import os
import signal
import threading

import pytest

from support.session_bus import Watcher
from support.tray import command_line, eventually, is_alive, processes_of
from support.updates import FEED, Publisher, Updater, note, set_up, version_at

AUTOMATIC = {"SUScheduledCheckInterval": 720, "SUAutomaticallyUpdate": 1}

# Records SIGTERM, and ends slowly.
SLOW_AGENT = """#!/usr/bin/python3
import pathlib, signal, sys, time
def asked(*_):
    pathlib.Path("{asked}").touch()
signal.signal(signal.SIGTERM, asked)
pathlib.Path("{ready}").touch()
while True:
    time.sleep(1000)
"""


@pytest.fixture
def publisher(world):
    publisher = Publisher(world)
    publisher.install("1.0")
    yield publisher
    publisher.close()
    for pid in processes_of(world.prefix):
        os.kill(pid, signal.SIGKILL)
        eventually(lambda pid=pid: not is_alive(pid), 15)


@pytest.fixture
def updater(world, publisher):
    return Updater(world)


def publish(publisher, confirms=True):
    """Publishes version 2.0, optionally without the files that it needs to confirm itself."""
    prefix = publisher.copy("2.0")
    if not confirms:
        (prefix / "libexec" / "zephyl-tray" / "zephyl-tray-updater").chmod(0o644)
    publisher.publish(publisher.pack(prefix))


def has_ended_for_good(world, tray, updater):
    """Asserts that nothing was rolled back, and that no process could start the tray again."""
    assert tray.wait() == 0
    eventually(lambda: processes_of(world.prefix) == [], what="the end of the watching updater")
    assert version_at(world.prefix) == "2.0"
    assert note(updater, "failed.json") is None
    assert not any("rolling back" in line for line in tray.lines), tray.lines


def goes_on_with_the_trial(start_tray):
    tray = start_tray()
    tray.log_line("version 2.0 is confirmed")
    assert tray.stop() == 0
    assert not any("rolling back" in line for line in tray.lines), tray.lines


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_a_signal_at_the_moment_of_the_restart_is_not_lost(world, start_tray, publisher, updater,
                                                           number):
    set_up(world, **AUTOMATIC)
    publish(publisher)
    tray = start_tray()
    tray.log_line("restarting as version 2.0", limit=20)
    tray.send(number)
    has_ended_for_good(world, tray, updater)
    goes_on_with_the_trial(start_tray)


@pytest.mark.parametrize("milliseconds", [2, 5, 10, 15, 20, 30, 50])
def test_a_signal_at_any_moment_of_the_restart_is_not_lost(world, start_tray, publisher, updater,
                                                           milliseconds):
    set_up(world, **AUTOMATIC)
    publish(publisher)
    tray = start_tray()
    tray.log_line("restarting as version 2.0", limit=20)
    threading.Event().wait(milliseconds / 1000)  # the test is about this moment
    tray.send(signal.SIGTERM)
    has_ended_for_good(world, tray, updater)
    goes_on_with_the_trial(start_tray)


def test_a_tray_that_is_terminated_during_its_shutdown_does_not_restart(world, start_tray,
                                                                        publisher, updater):
    asked, ready = world.root / "asked", world.root / "ready"
    world.use_agent_script(SLOW_AGENT.format(asked=asked, ready=ready))
    set_up(world, **{**AUTOMATIC, "SUScheduledCheckInterval": 720})
    publish(publisher)
    feed = publisher.server.answers[FEED]

    def answer_once_the_agent_is_ready(request):
        eventually(ready.exists, what="an agent that handles SIGTERM")
        request.reply(200, feed)

    publisher.server.answers[FEED] = answer_once_the_agent_is_ready
    tray = start_tray()
    tray.log_line("restarting as version 2.0", limit=20)
    eventually(asked.exists, what="the shutdown")
    tray.send(signal.SIGTERM)
    has_ended_for_good(world, tray, updater)
    assert note(updater, "trial.json")["endedProcess"] == tray.pid
    assert note(updater, "trial.json")["starts"] == 0
    world.agent_program.unlink()
    goes_on_with_the_trial(start_tray)


def test_a_new_version_terminated_before_its_confirmation_has_not_failed(
        world, start_tray, publisher, updater):
    set_up(world, **AUTOMATIC)
    publish(publisher, confirms=False)
    tray = start_tray()
    tray.log_line("no updates:", limit=20)  # logged by version 2.0 when it has started everything
    assert note(updater, "trial.json")["starts"] == 1
    assert any("zephyl-tray-updater" in command_line(pid) for pid in processes_of(world.prefix))
    tray.send(signal.SIGTERM)
    has_ended_for_good(world, tray, updater)
    left = note(updater, "trial.json")
    assert (left["endedProcess"], left["starts"]) == (tray.pid, 0), "this start does not count"
    again = start_tray()
    again.log_line("no updates:")
    assert note(updater, "trial.json")["starts"] == 1
    assert again.stop() == 0


def test_quitting_a_version_on_trial_ends_it(world, start_tray, publisher, updater, bus):
    watcher = Watcher(bus.peer())
    set_up(world, **AUTOMATIC)
    publish(publisher, confirms=False)
    tray = start_tray("--desktop")
    tray.log_line("no updates:", limit=20)
    item = eventually(lambda: len(watcher.items) >= 2 and watcher.item(len(watcher.items)))
    item.event(item.find("Quit Zephyl"), "clicked")
    has_ended_for_good(world, tray, updater)


def test_a_new_version_that_is_killed_has_failed(world, start_tray, publisher, updater):
    """Shows that the tests above can fail."""
    set_up(world, **AUTOMATIC)
    publish(publisher, confirms=False)
    tray = start_tray()
    tray.log_line("no updates:", limit=20)
    tray.send(signal.SIGKILL)
    eventually(lambda: note(updater, "failed.json") is not None, what="the rollback")
    eventually(lambda: version_at(world.prefix) == "1.0")


def test_the_lock_stays_held_while_the_tray_restarts(world, start_tray, publisher):
    set_up(world, **AUTOMATIC)
    publish(publisher)
    tray = start_tray()
    tray.log_line("restarting as version 2.0", limit=20)
    got = threading.Event()

    def wait_for_lock():
        with open(world.base / "tray.lock") as file:
            fcntl.flock(file, fcntl.LOCK_EX)  # succeeds as soon as the lock is free
            got.set()

    waiting = threading.Thread(target=wait_for_lock)
    waiting.start()
    try:
        tray.log_line("version 2.0 is confirmed")
        assert not got.is_set()
        assert (world.base / "tray.lock").read_text() == f"{tray.pid}\n"
    finally:
        tray.send(signal.SIGTERM)
        waiting.join(20)
    assert tray.wait() == 0 and got.is_set()
