"""An installation and its state directory may belong to another user of the machine."""

import json
import os
import shutil
import time
import urllib.request

import pytest

from support.tray import eventually, is_alive
from support.update_fixtures import NEW
from support.updates import Publisher, Updater, rewrite_information, set_up

STRANGER = 54399  # a user without any files

as_root = pytest.mark.skipif(os.geteuid() != 0, reason="needs root, to act as another user")


def state_directory(world):
    return world.prefix.parent / f".{world.prefix.name}.updates"


def plant(world, script, **note):
    """A version that was started too often, and a program that would roll it back."""
    program = state_directory(world) / "previous/libexec/zephyl-tray/zephyl-tray-updater"
    program.parent.mkdir(parents=True)
    program.write_text(f"#!/bin/sh\n{script}\n")
    program.chmod(0o755)
    note = {"version": "0.1.0", "displayVersion": "0.1.0", "starts": 9, **note}
    (state_directory(world) / "trial.json").write_text(json.dumps(note))
    state_directory(world).chmod(0o700)


def give_away(path, user):
    for directory, _, names in os.walk(path):
        for name in [directory, *(os.path.join(directory, name) for name in names)]:
            os.chown(name, user, user, follow_symlinks=False)


def to_a_stranger(world):
    give_away(state_directory(world), STRANGER)


def behind_a_link(world):
    elsewhere = world.root / "elsewhere"
    state_directory(world).rename(elsewhere)
    state_directory(world).symlink_to(elsewhere)


@pytest.mark.parametrize("prepare, reason", [
    pytest.param(to_a_stranger, "belongs to another user", marks=as_root, id="of another user"),
    pytest.param(behind_a_link, "is not a directory", id="a link"),
    pytest.param(lambda world: state_directory(world).chmod(0o777), "is open to other users",
                 id="0777"),
    pytest.param(lambda world: state_directory(world).chmod(0o755), "is open to other users",
                 id="0755")])
def test_no_program_that_others_may_have_placed_is_run(world, start_tray, prepare, reason):
    planted = world.root / "planted"
    plant(world, f"touch {planted}")
    prepare(world)
    tray = start_tray()
    tray.log_line(reason)
    tray.log_line("No Rust agent binary found")
    assert tray.stop() == 0
    assert not planted.exists()


def test_a_program_that_only_the_user_can_change_is_run(world, start_tray):
    """Shows that the test above can fail."""
    planted = world.root / "planted"
    plant(world, f"touch {planted}")
    tray = start_tray()
    tray.log_line("could not roll back to the previous version")
    tray.log_line("No Rust agent binary found")
    assert tray.stop() == 0
    assert planted.exists()


@as_root
def test_files_of_another_user_are_ignored(world, start_tray):
    publisher = Publisher(world)
    try:
        publisher.install("1.0")
        publisher.publish(publisher.pack(publisher.copy("2.0", program=NEW)))
        state_directory(world).mkdir(mode=0o700)
        (state_directory(world) / "failed.json").write_text(
            json.dumps({"version": "2.0", "displayVersion": "2.0, call 555"}))
        to_a_stranger(world)
        set_up(world, SUScheduledCheckInterval=1)
        tray = start_tray()
        tray.log_line("version 2.0 is available")
        assert tray.stop() == 0
        assert not any("call" in line for line in tray.lines)
    finally:
        publisher.close()


def test_an_updater_that_hangs_does_not_prevent_the_start(world, start_tray):
    pid = world.root / "pid"
    plant(world, f"echo $$ > {pid}\nexec sleep 1000")
    began = time.monotonic()
    tray = start_tray()
    tray.log_line("did not end in time")

    def answers():
        try:
            urllib.request.urlopen(f"http://127.0.0.1:{world.control_port}/status", timeout=1)
        except urllib.error.HTTPError:
            return True
        except OSError:
            return False
        return True

    eventually(answers, what="the control server")
    assert time.monotonic() - began < 9
    assert not is_alive(int(pid.read_text()))
    assert tray.stop() == 0


def test_a_note_that_cannot_be_decoded_is_removed(world, start_tray):
    state_directory(world).mkdir(mode=0o700)
    (state_directory(world) / "trial.json").write_text("")
    tray = start_tray()
    tray.log_line("trial.json: it is damaged")
    assert not (state_directory(world) / "trial.json").exists()
    assert tray.stop() == 0


# Refused installations

@pytest.fixture
def publisher(world):
    publisher = Publisher(world)
    tray = world.prefix / "bin" / "zephyl-tray"
    tray.write_text('#!/bin/sh\necho "zephyl-tray old"\n')
    publisher.install("1.0")
    publisher.publish(publisher.pack(publisher.copy("2.0", program=NEW)))
    yield publisher
    publisher.close()


@pytest.fixture
def updater(world, publisher):
    return Updater(world)


def is_not_updated(updater, reason):
    found = updater.check()["found"]
    assert reason in found["obstacle"], found
    assert reason in updater.download(found["offer"])["failed"]
    assert not (updater.directory / "staged").exists()


@as_root
def test_an_installation_of_another_user_is_not_updated(world, updater):
    give_away(world.prefix, STRANGER)
    is_not_updated(updater, "belongs to another user")
    assert world.prefix.stat().st_uid == STRANGER


@as_root
def test_an_installation_of_another_user_is_not_updated_even_if_writable(world, updater):
    give_away(world.prefix, STRANGER)
    world.root.chmod(0o777)
    for path in [world.prefix, *world.prefix.rglob("*")]:
        path.chmod(0o777)
    updater.user = STRANGER + 1
    is_not_updated(updater, "Other users may change")
    world.root.chmod(0o700)


@pytest.mark.parametrize("place", ["", "bin", "share/zephyl-tray/Info.json"])
def test_an_installation_that_others_may_write_is_not_updated(world, updater, place):
    path = world.prefix / place
    path.chmod(path.stat().st_mode | 0o020)
    is_not_updated(updater, f"Other users may change {path}, so")
    path.chmod(path.stat().st_mode & ~0o020)
    assert "obstacle" not in updater.check()["found"]


@pytest.mark.parametrize("mode", [0o777, 0o1777, 0o770])
def test_an_installation_in_a_folder_that_others_may_write_is_not_updated(world, updater, mode):
    world.root.chmod(mode)
    is_not_updated(updater, f"chmod go-w '{world.root}'")
    world.root.chmod(0o700)


@pytest.mark.parametrize("mode", [0o700, 0o750, 0o755])
def test_an_update_keeps_the_mode_of_the_installation(world, updater, mode):
    world.prefix.chmod(mode)
    assert updater.download(updater.check()["found"]["offer"]) == {"ready": "2.0"}
    assert updater.install("2.0") == {"installed": "2.0"}
    assert world.prefix.stat().st_mode & 0o7777 == mode


@pytest.mark.parametrize("values, reason", [
    ({"SUPublicEDKey": "typo"}, "no usable signing key"),
    ({"SUFeedURL": "http://updates.example/feed"}, "no usable feed address")])
def test_an_update_without_feed_or_keys_for_later_updates_is_refused(publisher, updater, values, reason):
    shutil.rmtree(publisher.directory / "prefix-2.0")
    prefix = publisher.copy("2.0", program=NEW)
    rewrite_information(prefix, **values)
    publisher.publish(publisher.pack(prefix))
    assert reason in updater.download(updater.check()["found"]["offer"])["failed"]
