"""A verified download is kept until it is installed, and verified again when it is used."""

import json
import os
import time

import pytest

from support.tray import eventually
from support.update_fixtures import (NEW, archive, offer_of, publisher,  # noqa: F401 (fixtures)
                                     updater)
from support.updates import ARCHIVE, FEED, Publisher, snapshot

WEEK = 7 * 24 * 3600


def kept(updater):
    return sorted(updater.directory.glob("archive-*"))


@pytest.fixture
def ready(publisher, updater, archive):
    """Returns the offer of an update that was downloaded and staged."""
    publisher.publish(archive)
    offer = offer_of(updater)
    assert updater.download(offer) == {"ready": "2.0"}
    publisher.server.requests.clear()
    return offer


def test_it_is_downloaded_once_and_verified_each_time(publisher, updater, archive, ready):
    path, = kept(updater)
    assert path.name == "archive-" + ready["sha256"]
    assert path.read_bytes() == archive.read_bytes()
    assert path.stat().st_mode & 0o777 == 0o600
    assert updater.directory.stat().st_mode & 0o777 == 0o700
    (updater.directory / "staged" / "bin" / "zephyl-tray").write_text("changed meanwhile")
    assert updater.download(ready) == {"ready": "2.0"}
    assert publisher.server.requests == []
    assert (updater.directory / "staged" / "bin" / "zephyl-tray").read_text() == NEW
    assert updater.install("2.0") == {"installed": "2.0"}
    assert kept(updater) == []


@pytest.mark.parametrize("damage", ["changed", "shorter", "longer", "empty", "a link", "a directory"])
def test_a_damaged_archive_is_downloaded_again(publisher, updater, archive, ready, damage):
    path, = kept(updater)
    contents = path.read_bytes()
    path.unlink()
    if damage == "a link":
        path.symlink_to(archive)
    elif damage == "a directory":
        path.mkdir()
    else:
        path.write_bytes({"changed": contents[:-9] + b"x" + contents[-8:], "shorter": contents[:-1],
                          "longer": contents + b"x", "empty": b""}[damage])
    assert updater.download(ready) == {"ready": "2.0"}
    assert publisher.server.requests == [ARCHIVE]
    path, = kept(updater)
    assert path.read_bytes() == contents and not path.is_symlink()


def test_a_kept_archive_needs_a_good_signature_too(world, publisher, updater, ready):
    _, other = publisher.other_key()
    information = world.prefix / "share" / "zephyl-tray" / "Info.json"
    values = json.loads(information.read_text())
    information.write_text(json.dumps({**values, "SUPublicEDKey": other}))
    assert "signature of the update is invalid" in updater.download(ready)["failed"]
    assert kept(updater) == []


def test_another_update_supersedes_it(publisher, updater, ready):
    assert updater.check()["found"]["offer"] == ready
    assert len(kept(updater)) == 1
    publisher.publish(publisher.pack(publisher.copy("3.0", program=NEW), name="3.tar.gz"))
    offer = offer_of(updater)
    assert kept(updater) == [] and not (updater.directory / "staged").exists()
    assert updater.download(offer) == {"ready": "3.0"}
    path, = kept(updater)
    assert path.name == "archive-" + offer["sha256"]


def test_it_is_removed_after_four_weeks(publisher, updater, ready):
    path, = kept(updater)
    os.utime(path, (time.time() - 4 * WEEK + 3600,) * 2)
    assert updater.check()["found"]["offer"] == ready
    assert kept(updater) == [path]
    os.utime(path, (time.time() - 4 * WEEK - 3600,) * 2)
    publisher.publish_items("")
    assert updater.check() == {"upToDate": "1.0"}
    assert kept(updater) == [] and not (updater.directory / "staged").exists()


def test_a_check_that_finds_nothing_keeps_the_staged_version(publisher, updater, ready):
    """The user may have skipped it, or checked manually before the roll-out reached this machine."""
    before = snapshot(updater.directory)
    assert updater.check(skip=["2.0"]) == {"upToDate": "1.0"}
    assert snapshot(updater.directory) == before


def test_a_tray_that_ends_while_it_waits_installs_later_without_a_download(world, start_tray,
                                                                          scripted_agent):
    publisher = Publisher(world)
    try:
        publisher.install("1.0")
        publisher.publish(publisher.pack(publisher.copy("2.0")))
        settings = world.home / ".config" / "com.zephyl.tray" / "defaults.json"
        settings.parent.mkdir(parents=True)
        settings.write_text(json.dumps({"SUScheduledCheckInterval": 720,
                                        "SUAutomaticallyUpdate": 1}))
        feed = publisher.server.answers[FEED]
        idle = scripted_agent.answers["/api/activity"]
        scripted_agent.answers["/api/activity"] = idle.replace(b"false", b"true")
        publisher.server.answers[FEED] = lambda handler: eventually(
            lambda: scripted_agent.count("/api/activity") >= 2) and handler.reply(200, feed)
        tray = start_tray()
        tray.log_line("version 2.0 is verified and ready to install")
        assert tray.stop() == 0
        assert not any("installing" in line for line in tray.lines)
        assert publisher.server.requests == [FEED, ARCHIVE]

        scripted_agent.answers["/api/activity"] = idle
        again = start_tray()
        again.log_line("version 2.0 is confirmed", limit=30)
        assert publisher.server.requests == [FEED, ARCHIVE, FEED]
        assert not list(world.prefix.parent.glob(".*.updates/archive-*"))
        assert again.stop() == 0
    finally:
        publisher.close()
