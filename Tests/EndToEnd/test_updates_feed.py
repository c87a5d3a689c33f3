"""Feeds have the date of their signature, and a feed older than one seen before is refused."""

import base64
import email.utils
import json
import re
import subprocess
import threading

import pytest

from support.tray import eventually
from support.update_fixtures import NEW
from support.updates import ARCHIVE, FEED, Publisher, Updater, set_up, sign

FUTURE = "  <lastBuildDate>Fri, 01 Jan 2100 00:00:00 +0000</lastBuildDate>\n"


@pytest.fixture
def publisher(world):
    publisher = Publisher(world)
    publisher.install("1.0")
    yield publisher
    publisher.close()


@pytest.fixture
def updater(world, publisher):
    return Updater(world)


def item_of(publisher, version):
    archive = publisher.pack(publisher.copy(version, program=NEW), name=f"{version}.tar.gz")
    return sign("item", archive, publisher.server.url + ARCHIVE, publisher.key)


def date_of(feed):
    text, = re.findall(rb"<lastBuildDate>(.*)</lastBuildDate>", feed)
    return int(email.utils.parsedate_to_datetime(text.decode()).timestamp())


def test_each_signature_gives_a_feed_a_later_date(publisher, updater):
    publisher.publish_items(item_of(publisher, "2.0"))
    first = publisher.server.answers[FEED]
    updater.check()
    assert updater.feed_date == date_of(first)
    feed = publisher.directory / "appcast.xml"
    sign("feed", feed, publisher.key)
    assert date_of(feed.read_bytes()) > date_of(first)
    publisher.publish_items(FUTURE)
    assert date_of(publisher.server.answers[FEED]) == date_of(FUTURE.encode()) + 1, (
        "a date that was wrong is left behind")


def test_a_feed_older_than_one_seen_before_is_refused(publisher, updater):
    publisher.publish_items(item_of(publisher, "2.0"))
    old = publisher.server.answers[FEED]
    found = updater.check(newestFeedDate=date_of(old))["found"]
    assert found["offer"]["version"] == "2.0", "the same feed is no older one"
    report = updater.check(newestFeedDate=date_of(old) + 1)
    assert "The feed is stale" in report["failed"]


def test_a_feed_without_a_date_is_refused(publisher, updater):
    feed = publisher.directory / "undated.xml"
    feed.write_text('<rss version="2.0"><channel>\n</channel></rss>\n')
    signature = subprocess.run(["openssl", "pkeyutl", "-sign", "-inkey", publisher.key, "-rawin",
                                "-in", feed], check=True, capture_output=True).stdout
    publisher.server.answers[FEED] = (feed.read_bytes() + b"<!-- signature: " +
                                      base64.b64encode(signature) + b" -->\n")
    assert updater.check() == {"failed": "The feed does not contain its date."}


def test_the_tray_remembers_the_newest_feed(world, start_tray, publisher):
    settings = set_up(world, SUScheduledCheckInterval=1)
    publisher.publish_items(item_of(publisher, "2.0"))
    old = publisher.server.answers[FEED]
    publisher.publish_items(FUTURE + item_of(publisher, "3.0"))
    tray = start_tray()
    tray.log_line("version 3.0 is available")
    publisher.server.answers[FEED] = old
    tray.log_line("The feed is stale")
    assert tray.stop() == 0
    again = start_tray()
    again.log_line("The feed is stale")
    assert not any("2.0 is available" in line for line in tray.lines + again.lines)
    assert again.stop() == 0
    assert json.loads(settings.read_text())["SUFeedDate"].endswith(f" {publisher.feed_url}")


def test_a_version_that_was_skipped_or_failed_is_offered_when_it_becomes_critical(publisher,
                                                                                 updater):
    item = item_of(publisher, "2.0")
    publisher.publish_items(item)

    def check(**values):
        return updater.check(userInitiated=False, **values)

    assert check(skip=["2.0"]) == {"upToDate": "1.0"}
    before = updater.feed_date
    failed = {"version": "2.0", "feedDate": before}
    assert check(failed=failed) == {"upToDate": "1.0"}
    publisher.publish_items(FUTURE + item.replace("<version>", "<criticalUpdate/><version>"))
    assert check(skip=["2.0"])["found"]["offer"]["critical"]
    assert check(failed=failed)["found"]["offer"]["critical"]
    assert check(failed={"version": "2.0", "feedDate": updater.feed_date}) == {"upToDate": "1.0"}


def test_a_newer_version_replaces_the_waiting_one(world, start_tray, scripted_agent, publisher):
    set_up(world, SUScheduledCheckInterval=1, SUAutomaticallyUpdate=1)
    becomes_idle = threading.Event()
    idle = scripted_agent.answers["/api/activity"]
    scripted_agent.answers["/api/activity"] = idle.replace(b"false", b"true")

    def tell_when_idle(handler):
        handler.wfile.write(b"HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\n\r\n")
        if becomes_idle.wait(60):
            handler.wfile.write(b"data: " + idle + b"\n\n")
        scripted_agent.hang(handler)

    scripted_agent.answers["/api/events"] = tell_when_idle
    publisher.publish(publisher.pack(publisher.copy("2.0")))
    feed = publisher.server.answers[FEED]
    publisher.server.answers[FEED] = lambda handler: eventually(
        lambda: scripted_agent.count("/api/activity") >= 2) and handler.reply(200, feed)
    tray = start_tray()
    tray.log_line("version 2.0 is verified and ready to install", limit=20)
    publisher.publish(publisher.pack(publisher.copy("3.0"), name="3.tar.gz"))
    tray.log_line("version 3.0 replaces version 2.0, which waits to be installed")
    tray.log_line("version 3.0 is verified and ready to install", limit=20)
    assert not any("installing" in line for line in tray.lines)
    scripted_agent.answers["/api/activity"] = idle
    becomes_idle.set()
    tray.log_line("version 3.0 is confirmed", limit=20)
    assert tray.stop() == 0
