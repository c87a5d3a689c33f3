"""Direct runs of zephyl-tray-updater: an installation is replaced atomically or rolled back."""

import json
import os
import signal
import subprocess
import time

from support.tray import eventually, without_sanitizers
from support.update_fixtures import (archive, offer_of, publisher,  # noqa: F401 (fixtures)
                                     refused_download, updater)
from support.updates import ARCHIVE, rewrite_information, snapshot


def test_updates_of_a_foreign_installation_are_only_reported(world, publisher, updater,
                                                                 archive):
    publisher.publish(archive)
    rewrite_information(world.prefix, ZephylUpdateCommand="apt upgrade zephyl-tray")
    found = updater.check()["found"]
    assert "Run: apt upgrade zephyl-tray" in found["obstacle"]
    refused_download(updater, found["offer"], "package manager")
    rewrite_information(world.prefix, ZephylUpdateCommand=None)
    (world.prefix / "bin" / "ls").write_text("somebody else's")
    found = updater.check()["found"]
    assert "shares its folder with other files (bin/ls)" in found["obstacle"]
    refused_download(updater, found["offer"], "shares its folder")


def test_updates_of_a_read_only_installation_are_only_reported(world, publisher, updater,
                                                                       archive):
    publisher.publish(archive)
    world.root.chmod(0o755)
    world.prefix.chmod(0o555)
    updater.user = 65534 if os.geteuid() == 0 else None  # root can write everything
    found = updater.check()["found"]
    assert "You may not change the installation" in found["obstacle"]
    refused_download(updater, found["offer"], "may not change")
    world.prefix.chmod(0o755)


def test_a_new_version_that_cannot_be_run_is_not_installed(world, publisher, updater):
    publisher.publish(publisher.pack(publisher.copy("2.0", program="#!/bin/sh\nexit 1\n")))
    assert updater.download(offer_of(updater)) == {"ready": "2.0"}
    before = snapshot(world.prefix)
    assert "does not work on this machine" in updater.install("2.0")["failed"]
    assert snapshot(world.prefix) == before


def test_only_one_updater_at_a_time_changes_an_installation(world, publisher, updater, archive):
    publisher.publish(archive)
    offer = offer_of(updater)
    reached = []
    publisher.server.answers[ARCHIVE] = lambda handler: (
        reached.append(1), publisher.server.ending.wait(20))
    first = updater.start({"download": {"offer": offer}})
    try:
        eventually(lambda: reached)
        refused = updater.download(offer)
        assert "already in progress" in refused["failed"]
        first.stdin.close()  # like a user who cancels, or a tray that dies
        first.wait(5)
        assert b"Cancelled" in first.stdout.read()
    finally:
        first.kill()
        first.wait()


def version_at(prefix):
    """Returns the installed version. Info.json and program must agree."""
    information = json.loads((prefix / "share" / "zephyl-tray" / "Info.json").read_text())
    run = subprocess.run([prefix / "bin" / "zephyl-tray", "--version"], capture_output=True,
                         text=True, check=True)
    assert {"1.0": "zephyl-tray old\n", "2.0": "zephyl-tray new\n"}[
        information["CFBundleShortVersionString"]] == run.stdout
    return information["CFBundleShortVersionString"]


def kill_after(updater, command, delay):
    with updater.start(command) as process:
        time.sleep(delay)  # the test is about this moment
        process.kill()


@without_sanitizers("the kills come before a slow program has begun")
def test_an_updater_killed_at_any_moment_leaves_a_working_version(world, publisher, updater, archive):
    publisher.publish(archive)
    offer = offer_of(updater)
    steps = 12
    seen = set()
    for name, command in {"download": {"download": {"offer": offer}},
                          "install": {"install": {"version": "2.0"}}}.items():
        began = time.monotonic()
        if name == "install":
            assert updater.download(offer) == {"ready": "2.0"}
        duration = 0.06
        for step in range(steps):
            kill_after(updater, command, duration * step / steps)
            seen.add(version_at(world.prefix))
            if version_at(world.prefix) == "2.0":
                break
            if name == "install" and not (updater.directory / "staged").exists():
                assert updater.download(offer) == {"ready": "2.0"}
        assert time.monotonic() - began < 20
    if version_at(world.prefix) == "1.0":
        assert updater.download(offer) == {"ready": "2.0"}
        assert updater.install("2.0") == {"installed": "2.0"}
    assert version_at(world.prefix) == "2.0"
    # A rollback must succeed from any interrupted state.
    watch = {"watch": {"process": 1 << 22, "arguments": ["--version"], "limitSeconds": 1}}
    for step in range(steps):
        kill_after(updater, watch, 0.03 * step / steps)
        assert version_at(world.prefix) in ("1.0", "2.0")
    with updater.start(watch) as process:
        process.stdout.read()  # ends with the program that was restored and started
    assert version_at(world.prefix) == "1.0"


# The trial

def installed(publisher, updater, archive):
    publisher.publish(archive)
    assert updater.download(offer_of(updater)) == {"ready": "2.0"}
    assert updater.install("2.0") == {"installed": "2.0"}


def test_a_confirmed_version_stays(world, publisher, updater, archive):
    installed(publisher, updater, archive)
    running = subprocess.Popen(["sleep", "1000"])
    try:
        watch = updater.start({"watch": {"process": running.pid, "arguments": [],
                                         "limitSeconds": 20}})
        (updater.directory / "trial.json").unlink()
        assert watch.wait(5) == 0
        assert running.poll() is None and version_at(world.prefix) == "2.0"
    finally:
        running.kill()
        running.wait()


def test_a_version_that_hangs_is_killed_and_rolled_back(world, publisher, updater,
                                                                      archive):
    before = snapshot(world.prefix)
    installed(publisher, updater, archive)
    hanging = subprocess.Popen(["sleep", "1000"])
    try:
        watch = updater.start({"watch": {"process": hanging.pid, "arguments": ["--version"],
                                         "limitSeconds": 1}})
        assert hanging.wait(10) == -signal.SIGTERM
        assert watch.wait(10) == 0
        assert watch.stdout.read() == b"zephyl-tray old\n", "the previous version did not run"
    finally:
        hanging.kill()
        hanging.wait()
    assert snapshot(world.prefix) == before
    note = json.loads((updater.directory / "failed.json").read_text())
    assert note["version"] == "2.0" and not (updater.directory / "trial.json").exists()
