"""An installed version that never starts is rolled back, even if no updater watches it, for example
after a power cut."""

import json
import shutil
import signal
import subprocess
import time

import pytest

from support.tray import eventually
from support.updates import Publisher, Updater, note, rewrite_information, version_at

MAX_STARTS = 3


@pytest.fixture
def publisher(world):
    publisher = Publisher(world)
    publisher.install("1.0")
    yield publisher
    publisher.close()


@pytest.fixture
def updater(world, publisher):
    return Updater(world)


def install(publisher, updater, world, change=lambda prefix: None):
    """Installs version 2.0 on trial, as after a power cut at its first start."""
    prefix = publisher.copy("2.0")
    change(prefix)
    publisher.publish(publisher.pack(prefix))
    offer = updater.check()["found"]["offer"]
    assert updater.download(offer) == {"ready": "2.0"}
    assert updater.install("2.0") == {"installed": "2.0"}
    assert version_at(world.prefix) == "2.0"
    return offer


def without_updater(prefix):
    """Makes the version run without ever confirming itself."""
    (prefix / "libexec" / "zephyl-tray" / "zephyl-tray-updater").chmod(0o644)


def cut_power(tray):
    tray.send(signal.SIGKILL)
    tray.wait()


def put_on_trial(updater, starts, version="2.0"):
    (updater.directory / "trial.json").write_text(
        json.dumps({"version": version, "displayVersion": version, "starts": starts}))


def is_up(tray, updater, version):
    """Waits until the tray has started everything, and asserts that no update is unfinished."""
    tray.log_line("No Rust agent binary found", limit=20)  # the last step of the start in this world
    eventually(lambda: note(updater, "trial.json") is None, what="the end of the trial")
    assert tray.process.poll() is None
    assert version_at(updater.prefix) == version


def test_a_version_that_starts_confirms_itself_without_a_watcher(world, start_tray, publisher,
                                                                     updater):
    install(publisher, updater, world)
    tray = start_tray()
    tray.log_line("version 2.0 is confirmed")
    is_up(tray, updater, "2.0")
    assert tray.stop() == 0


def test_a_version_that_never_starts_is_rolled_back_by_a_later_start(world, start_tray, publisher,
                                                                    updater):
    install(publisher, updater, world, without_updater)
    for start in range(1, MAX_STARTS + 1):
        tray = start_tray()
        tray.log_line("no updates:")  # logged at the end of the start
        assert note(updater, "trial.json")["starts"] == start
        cut_power(tray)
        assert version_at(world.prefix) == "2.0"
    tray = start_tray()
    tray.log_line("version 2.0 failed to start 3 times")
    tray.log_line("version 2.0 failed to start; version 1.0 was restored")
    is_up(tray, updater, "1.0")
    assert note(updater, "failed.json")["version"] == "2.0"
    assert not (updater.directory / "previous").exists()
    assert tray.stop() == 0
    again = start_tray()
    is_up(again, updater, "1.0")
    assert again.stop() == 0
    assert not any("2.0" in line for line in again.lines), "it is reported once"


def test_a_version_that_ends_at_once_is_rolled_back(world, start_tray, publisher, updater):
    install(publisher, updater, world)
    port = world.environment["ZEPHYL_ONBOARD_PORT"]
    world.environment["ZEPHYL_ONBOARD_PORT"] = "70000"  # prevents every version from starting
    for _ in range(MAX_STARTS):
        assert start_tray().wait() == 1
    assert version_at(world.prefix) == "2.0"
    last = start_tray()
    assert last.wait() == 1
    assert any("rolling back to the previous version" in line for line in last.lines)
    assert version_at(world.prefix) == "1.0"
    world.environment["ZEPHYL_ONBOARD_PORT"] = port
    tray = start_tray()
    is_up(tray, updater, "1.0")
    assert tray.stop() == 0


def test_printing_the_version_does_not_count_as_a_start(world, start_tray, publisher, updater):
    install(publisher, updater, world, without_updater)
    program = world.prefix / "bin" / "zephyl-tray"
    tray = start_tray()
    tray.log_line("no updates:")
    for _ in range(MAX_STARTS + 1):
        subprocess.run([program, "--version"], check=True, capture_output=True)
        second = subprocess.run([program, "--headless"], env=world.environment, timeout=20,
                                capture_output=True, text=True)
        assert "already running" in second.stderr
    assert note(updater, "trial.json")["starts"] == 1
    assert version_at(world.prefix) == "2.0"
    assert tray.stop() == 0


# After a power cut

def test_a_power_cut_before_the_exchange_keeps_the_old_version(world, start_tray, publisher, updater):
    publisher.publish(publisher.pack(publisher.copy("2.0")))
    assert updater.download(updater.check()["found"]["offer"]) == {"ready": "2.0"}
    put_on_trial(updater, starts=9)
    tray = start_tray()
    is_up(tray, updater, "1.0")
    assert not any("rolling back" in line for line in tray.lines)
    assert (updater.directory / "staged").exists()
    assert tray.stop() == 0


def test_a_power_cut_after_the_exchange_keeps_the_previous_version(world, start_tray, publisher,
                                                                  updater):
    install(publisher, updater, world, without_updater)
    (updater.directory / "previous").rename(updater.directory / "staged")
    put_on_trial(updater, starts=MAX_STARTS)
    tray = start_tray()
    tray.log_line("version 1.0 was restored")
    is_up(tray, updater, "1.0")
    assert tray.stop() == 0


def test_a_power_cut_before_the_rollback_rolls_back_later(world, start_tray, publisher, updater):
    install(publisher, updater, world)
    put_on_trial(updater, starts=MAX_STARTS)
    shutil.copy(updater.directory / "trial.json", updater.directory / "failed.json")
    tray = start_tray()
    tray.log_line("version 1.0 was restored")
    is_up(tray, updater, "1.0")
    assert tray.stop() == 0


def test_a_power_cut_after_the_rollback_changes_nothing(world, start_tray, publisher, updater):
    install(publisher, updater, world)
    put_on_trial(updater, starts=MAX_STARTS)
    shutil.copy(updater.directory / "trial.json", updater.directory / "failed.json")
    spare = world.root / "spare"
    world.prefix.rename(spare)
    (updater.directory / "previous").rename(world.prefix)
    spare.rename(updater.directory / "previous")
    assert version_at(world.prefix) == "1.0"
    tray = start_tray()
    tray.log_line("version 1.0 was restored")
    is_up(tray, updater, "1.0")
    assert not any("rolling back" in line for line in tray.lines)
    assert tray.stop() == 0


def test_a_rollback_killed_at_any_moment_is_completed_later(world, start_tray, publisher, updater):
    offer = install(publisher, updater, world, without_updater)
    for step in range(12):
        put_on_trial(updater, starts=MAX_STARTS)
        with updater.start({"takeBack": {}}) as process:
            time.sleep(0.002 * step)  # the test is about this moment
            process.kill()
        tray = start_tray()
        is_up(tray, updater, "1.0")
        assert tray.stop() == 0
        assert updater.download(offer) == {"ready": "2.0"}
        assert updater.install("2.0") == {"installed": "2.0"}


def test_without_a_previous_version_the_new_one_keeps_running(world, start_tray, publisher, updater):
    install(publisher, updater, world)
    shutil.rmtree(updater.directory / "previous")
    put_on_trial(updater, starts=MAX_STARTS)
    tray = start_tray()
    tray.log_line("could not roll back to the previous version")
    tray.log_line("version 2.0 is confirmed")
    is_up(tray, updater, "2.0")
    assert note(updater, "failed.json") is None
    assert tray.stop() == 0


def test_a_broken_updater_of_the_new_version_does_not_prevent_a_rollback(
        world, start_tray, publisher, updater):
    def break_updater(prefix):
        program = prefix / "libexec" / "zephyl-tray" / "zephyl-tray-updater"
        program.write_text("#!/bin/sh\nexit 7\n")

    install(publisher, updater, world, break_updater)
    rewrite_information(world.prefix)
    put_on_trial(updater, starts=MAX_STARTS)
    tray = start_tray()
    is_up(tray, updater, "1.0")
    assert tray.stop() == 0
