"""Fixtures for tests that run zephyl-tray-updater directly."""

import pytest

from support.updates import Publisher, Updater, snapshot

OLD = '#!/bin/sh\necho "zephyl-tray old"\n'
NEW = '#!/bin/sh\necho "zephyl-tray new"\n'


@pytest.fixture
def publisher(world):
    publisher = Publisher(world)
    # The program does not matter here, and a script is packed faster than the tray.
    tray = world.prefix / "bin" / "zephyl-tray"
    tray.write_text(OLD)
    publisher.install("1.0")
    (world.prefix / "libexec" / "zephyl-tray" / "zephyl-tray-updater").write_text("")
    yield publisher
    publisher.close()


@pytest.fixture
def updater(world, publisher):
    return Updater(world)


@pytest.fixture
def archive(publisher):
    return publisher.pack(publisher.copy("2.0", program=NEW))


def offer_of(updater):
    return updater.check()["found"]["offer"]


def refused_download(updater, offer, reason, **values):
    before = snapshot(updater.prefix)
    report = updater.download(offer, **values)
    assert "failed" in report and reason in report["failed"], report
    assert snapshot(updater.prefix) == before
    left = [path.name for path in updater.directory.iterdir()] if updater.directory.exists() else []
    assert left in ([], ["lock"]), left
