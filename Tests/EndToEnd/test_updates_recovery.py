"""A version that an update installed and that never starts is rolled back, also when nobody is left
to watch it, as after a power cut."""

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
    """Version 2.0 stands at the prefix, on trial, as after a power cut at its first start."""
    prefix = publisher.copy("2.0")
    change(prefix)
    publisher.publish(publisher.pack(prefix))
    offer = updater.check()["found"]["offer"]
    assert updater.download(offer) == {"ready": "2.0"}
    assert updater.install("2.0") == {"installed": "2.0"}
    assert version_at(world.prefix) == "2.0"
    return offer


def without_updater(prefix):
    """Such a version runs, but never reports itself up."""
    (prefix / "libexec" / "zephyl-tray" / "zephyl-tray-updater").chmod(0o644)


def cut_power(tray):
    tray.send(signal.SIGKILL)
    tray.wait()


def put_on_trial(updater, starts, version="2.0"):
    (updater.directory / "trial.json").write_text(
        json.dumps({"version": version, "displayVersion": version, "starts": starts}))


def is_up(tray, updater, version):
    """It has started everything, and no update is left unfinished."""
    tray.log_line("No Rust agent binary found", limit=20)  # which is what it comes to here
    eventually(lambda: note(updater, "trial.json") is None, what="the end of the trial")
    assert tray.process.poll() is None
    assert version_at(updater.prefix) == version


def test_a_version_that_comes_up_confirms_itself_with_nobody_watching(world, start_tray, publisher,
                                                                     updater):
    install(publisher, updater, world)
    tray = start_tray()
    tray.log_line("version 2.0 is confirmed")
    is_up(tray, updater, "2.0")
    assert tray.stop() == 0


def test_a_version_that_never_comes_up_is_taken_back_by_a_later_start(world, start_tray, publisher,
                                                                    updater):
    install(publisher, updater, world, without_updater)
    for start in range(1, MAX_STARTS + 1):
        tray = start_tray()
        tray.log_line("no updates:")  # it has started
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
    assert not any("2.0" in line for line in again.lines), "it is told once"


def test_a_version_that_ends_by_itself_at_once_is_taken_back(world, start_tray, publisher, updater):
    install(publisher, updater, world)
    port = world.environment["ZEPHYL_ONBOARD_PORT"]
    world.environment["ZEPHYL_ONBOARD_PORT"] = "70000"  # with which no version starts
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


def test_what_only_answers_a_question_is_no_start(world, start_tray, publisher, updater):
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


# Where a power cut left it

def test_a_cut_before_the_exchange_leaves_the_old_version(world, start_tray, publisher, updater):
    publisher.publish(publisher.pack(publisher.copy("2.0")))
    assert updater.download(updater.check()["found"]["offer"]) == {"ready": "2.0"}
    put_on_trial(updater, starts=9)
    tray = start_tray()
    is_up(tray, updater, "1.0")
    assert not any("rolling back" in line for line in tray.lines)
    assert (updater.directory / "staged").exists()
    assert tray.stop() == 0


def test_a_cut_right_behind_the_exchange_loses_no_previous_version(world, start_tray, publisher,
                                                                  updater):
    install(publisher, updater, world, without_updater)
    (updater.directory / "previous").rename(updater.directory / "staged")
    put_on_trial(updater, starts=MAX_STARTS)
    tray = start_tray()
    tray.log_line("version 1.0 was restored")
    is_up(tray, updater, "1.0")
    assert tray.stop() == 0


def test_a_cut_before_the_way_back_goes_the_whole_way(world, start_tray, publisher, updater):
    install(publisher, updater, world)
    put_on_trial(updater, starts=MAX_STARTS)
    shutil.copy(updater.directory / "trial.json", updater.directory / "failed.json")
    tray = start_tray()
    tray.log_line("version 1.0 was restored")
    is_up(tray, updater, "1.0")
    assert tray.stop() == 0


def test_a_cut_behind_the_way_back_changes_nothing_any_more(world, start_tray, publisher, updater):
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


def test_a_kill_at_any_moment_of_the_way_back_is_made_up_for(world, start_tray, publisher, updater):
    offer = install(publisher, updater, world, without_updater)
    for step in range(12):
        put_on_trial(updater, starts=MAX_STARTS)
        with updater.start({"takeBack": {}}) as process:
            time.sleep(0.002 * step)  # when it is killed is the very thing that is tried out
            process.kill()
        tray = start_tray()
        is_up(tray, updater, "1.0")
        assert tray.stop() == 0
        assert updater.download(offer) == {"ready": "2.0"}
        assert updater.install("2.0") == {"installed": "2.0"}


def test_without_a_version_to_return_to_the_new_one_goes_on(world, start_tray, publisher, updater):
    install(publisher, updater, world)
    shutil.rmtree(updater.directory / "previous")
    put_on_trial(updater, starts=MAX_STARTS)
    tray = start_tray()
    tray.log_line("could not roll back to the previous version")
    tray.log_line("version 2.0 is confirmed")
    is_up(tray, updater, "2.0")
    assert note(updater, "failed.json") is None
    assert tray.stop() == 0


def test_a_broken_updater_of_the_new_version_does_not_keep_it(world, start_tray, publisher, updater):
    def break_updater(prefix):
        program = prefix / "libexec" / "zephyl-tray" / "zephyl-tray-updater"
        program.write_text("#!/bin/sh\nexit 7\n")

    install(publisher, updater, world, break_updater)
    rewrite_information(world.prefix)
    put_on_trial(updater, starts=MAX_STARTS)
    tray = start_tray()
    is_up(tray, updater, "1.0")
    assert tray.stop() == 0
