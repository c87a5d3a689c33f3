"""Direct runs of zephyl-tray-updater: the updates that it offers, and everything that it refuses."""

import base64
import hashlib
import os
import re
import subprocess
import tarfile
import time

import pytest

from support.tray import BUILD
from support.update_fixtures import (NEW, archive, offer_of, publisher,  # noqa: F401 (fixtures)
                                     refused_download, updater)
from support.updates import (ARCHIVE, FEED, rewrite_information, sign, snapshot,
                             write_archive)

# Offered updates

def test_a_newer_version_is_found_downloaded_and_installed(world, publisher, updater, archive):
    publisher.publish(archive, change=lambda item: item.replace(
        "<description></description>", "<description>Faster &amp; &lt;calmer&gt;</description>"))
    found = updater.check()["found"]
    offer = found["offer"]
    assert "obstacle" not in found
    assert (offer["version"], offer["displayVersion"]) == ("2.0", "2.0")
    assert offer["releaseNotes"] == "Faster & <calmer>"
    before = snapshot(world.prefix)
    reports = updater.run("download", offer=offer)
    assert reports[-1] == {"ready": "2.0"}
    size = archive.stat().st_size
    assert reports[-2] == {"progress": {"received": size, "total": size}}
    assert snapshot(world.prefix) == before, "a download changes nothing of the installation"
    assert updater.install("2.0") == {"installed": "2.0"}
    assert (world.prefix / "bin" / "zephyl-tray").read_text() == NEW
    assert snapshot(updater.directory / "previous") == before
    assert updater.directory.stat().st_mode & 0o777 == 0o700
    assert sorted(path.name for path in updater.directory.iterdir()) == [
        "lock", "previous", "trial.json"]


@pytest.mark.parametrize("version", ["1.0", "0.9", "1.0b3"])
def test_the_same_or_a_lower_version_is_not_offered(publisher, updater, version):
    publisher.publish(publisher.pack(publisher.copy(version, program=NEW)))
    assert updater.check() == {"upToDate": "1.0"}


def test_each_of_two_keys_is_trusted_so_that_one_can_be_retired(world, publisher, updater, archive):
    key, public = publisher.other_key()
    for keys in (f"{publisher.public_key} {public}", [publisher.public_key, public]):
        rewrite_information(world.prefix, SUPublicEDKey=keys)
        for signer in (publisher.key, key):
            publisher.publish(archive, keys=[signer])
            assert updater.download(offer_of(updater)) == {"ready": "2.0"}
    # Signatures by both keys are valid for installations that know only one of them.
    publisher.publish(archive, keys=[publisher.key, key])
    for known in (publisher.public_key, public):
        rewrite_information(world.prefix, SUPublicEDKey=known)
        assert updater.download(offer_of(updater)) == {"ready": "2.0"}


def test_items_for_other_systems_are_omitted(publisher, updater, archive):
    item = sign("item", archive, publisher.server.url + ARCHIVE, publisher.key)
    others = {
        "another architecture": re.sub(r'architecture="\w+"', 'architecture="vax"', item),
        "a newer system": item.replace(
            "<title>", "<minimumSystemVersion>99.0</minimumSystemVersion><title>"),
        "a channel": item.replace("<title>", "<channel>beta</channel><title>"),
    }
    for name, other in others.items():
        publisher.publish_items(other)
        assert updater.check() == {"upToDate": "1.0"}, name
    publisher.publish_items(others["a channel"])
    assert "found" in updater.check(channels=["beta"])
    publisher.publish_items(item.replace(
        "<title>", "<phasedRolloutInterval>3600</phasedRolloutInterval><title>"))
    assert "found" in updater.check(rolloutGroup=0, userInitiated=False)
    assert "found" in updater.check(rolloutGroup=3, userInitiated=True)
    assert updater.check(rolloutGroup=3, userInitiated=False) == {"upToDate": "1.0"}
    assert updater.check(skip=["2.0"]) == {"upToDate": "1.0"}


# Refused updates

def refused_check(updater, reason, **values):
    before = snapshot(updater.prefix.parent)
    report = updater.check(**values)
    assert "failed" in report and reason in report["failed"], report
    assert snapshot(updater.prefix.parent) == before


def test_a_feed_without_a_valid_signature_is_refused_before_parsing(publisher, updater, archive):
    publisher.publish(archive)
    good = publisher.server.answers[FEED]
    key, _ = publisher.other_key()
    publisher.publish(archive, feed_keys=[key])
    strange = publisher.server.answers[FEED]
    for feed, reason in {
            good.replace(b"2.0</version>", b"3.0</version>"): "signature of the feed is invalid",
            good.replace(b"signature: ", b"signature: A"): "signature of the feed is invalid",
            good[:good.rindex(b"<!--")]: "not signed",
            good + b"<item/>\n": "not signed",
            strange: "signature of the feed is invalid",
            b"": "not signed",
            b"\x00\xff" * 1000: "not signed"}.items():
        publisher.server.answers[FEED] = feed
        refused_check(updater, reason)
    publisher.server.answers[FEED] = good
    assert "found" in updater.check()


def test_an_invalid_feed_is_refused(publisher, updater):
    publisher.publish_items("</channel>")
    refused_check(updater, "cannot be read")


def test_a_feed_of_a_gigabyte_is_aborted(publisher, updater):
    sent = []

    def flood(handler):
        handler.send_response(200)
        handler.send_header("Content-Length", str(1 << 30))
        handler.end_headers()
        for _ in range(1 << 14):
            handler.wfile.write(bytes(1 << 16))
            sent.append(1 << 16)

    publisher.server.answers[FEED] = flood
    began = time.monotonic()
    refused_check(updater, "more than expected")
    assert time.monotonic() - began < 5
    assert sum(sent) < 100e6


def test_a_server_that_stalls_is_aborted(publisher, updater, archive):
    def stall(handler):
        handler.send_response(200)
        handler.send_header("Content-Length", "1000")
        handler.end_headers()
        handler.wfile.write(b"<rss>")
        publisher.server.ending.wait(20)

    publisher.server.answers[FEED] = stall
    began = time.monotonic()
    refused_check(updater, "took too long", stallSeconds=1)
    assert time.monotonic() - began < 4


@pytest.mark.parametrize("address", ["http://192.0.2.1/feed", "http://localhost.example/feed",
                                     "ftp://127.0.0.1/feed", "file:///etc/passwd", "feed"])
def test_only_https_and_loopback_are_contacted(world, updater, address):
    rewrite_information(world.prefix, SUFeedURL=address)
    began = time.monotonic()
    report = updater.check()
    assert "https" in report["failed"] or "not an address" in report["failed"]
    assert time.monotonic() - began < 2


@pytest.mark.parametrize("address, reason", [
    ("http://192.0.2.1/feed", "only over https"), ("file:///etc/passwd", "not an address")])
def test_a_redirect_to_another_scheme_is_refused(publisher, updater, address, reason):
    publisher.server.answers[FEED] = lambda handler: handler.reply(302, Location=address)
    refused_check(updater, reason)


def test_the_number_of_redirects_is_limited(publisher, updater):
    publisher.server.answers[FEED] = lambda handler: handler.reply(302, Location=FEED)
    refused_check(updater, "redirects too often")
    assert len(publisher.server.requests) == 6


def test_without_a_feed_or_a_key_nothing_is_contacted(world, publisher, updater, archive):
    publisher.publish(archive)
    for missing, reason in (("SUPublicEDKey", "no signing key"), ("SUFeedURL", "no feed address")):
        publisher.install()
        rewrite_information(world.prefix, **{missing: None})
        assert reason in updater.check()["failed"]
    assert publisher.server.requests == []


def flipped(contents, place):
    return contents[:place] + bytes([contents[place] ^ 1]) + contents[place + 1:]


def test_an_archive_with_other_bytes_than_signed_is_refused(publisher, updater, archive):
    publisher.publish(archive)
    offer = offer_of(updater)
    contents = archive.read_bytes()
    attacks = {
        "a changed byte": (flipped(contents, len(contents) // 2),
                           "signature of the update is invalid"),
        "longer": (contents + b"x", "more than expected"),
        "much longer": (contents * 50, "more than expected"),
        "shorter": (contents[:-1], "shorter"),
        "nothing": (b"", "shorter"),
        "cut off": (lambda handler: (handler.send_response(200),
                                     handler.send_header("Content-Length", str(len(contents))),
                                     handler.end_headers(),
                                     handler.wfile.write(contents[:100])), "cannot be reached"),
        "missing": (lambda handler: handler.reply(404), "status 404"),
        "elsewhere": (lambda handler: handler.reply(302, Location="http://192.0.2.1/"),
                      "only over https"),
    }
    for name, (answer, reason) in attacks.items():
        publisher.server.answers[ARCHIVE] = answer
        refused_download(updater, offer, reason)
    publisher.server.answers[ARCHIVE] = contents
    assert updater.download(offer) == {"ready": "2.0"}


def test_an_incomplete_item_is_refused(publisher, updater, archive):
    key, _ = publisher.other_key()
    publisher.publish(archive)
    good = offer_of(updater)

    publisher.publish(archive, keys=[key], feed_keys=[publisher.key])
    refused_download(updater, offer_of(updater), "signature of the update is invalid")

    for change, reason in [
            (lambda item: re.sub(r'edSignature="[^"]*"', "", item), "not signed"),
            (lambda item: re.sub(r'sha256="[^"]*"', "", item), "valid hash"),
            (lambda item: re.sub(r'length="[^"]*"', "", item), "the size of the update"),
            (lambda item: re.sub(r'length="[^"]*"', 'length="99999999999"', item), "too large"),
            (lambda item: re.sub(r'url="http:[^"]*"', 'url="http://192.0.2.1/x"', item), "https")]:
        publisher.publish(archive, change=change)
        refused_check(updater, reason)

    wrong_hash = {**good, "sha256": "0" * 64}
    publisher.publish(archive)
    refused_download(updater, wrong_hash, "does not match the hash")


@pytest.mark.parametrize("change, reason", [
    (lambda contents: contents[:-1], "The update is shorter than it should be."),
    (lambda contents: contents[:-8192], "The update is shorter than it should be."),
    (lambda contents: contents + b"x", "The server sent more than expected.")])
def test_an_archive_of_another_length_is_refused(publisher, updater, archive, change, reason):
    publisher.publish(archive)
    offer = offer_of(updater)
    publisher.server.answers[ARCHIVE] = change(archive.read_bytes())
    refused_download(updater, offer, reason)


def test_a_lower_version_is_refused_at_every_step(publisher, updater):
    archive = publisher.pack(publisher.copy("0.9", program=NEW))
    publisher.publish(archive)
    item = publisher.server.answers[FEED].decode()
    offer = {"version": "0.9", "displayVersion": "0.9", "url": publisher.server.url + ARCHIVE,
             "length": archive.stat().st_size, "critical": False, "releaseNotes": "",
             "sha256": re.search('sha256="(.*?)"', item)[1],
             "signature": re.search('edSignature="(.*?)"', item)[1]}
    refused_download(updater, offer, "not newer")
    # It is also refused if the item claims a higher version, or has other bytes.
    refused_download(updater, {**offer, "version": "2.0"}, "The update is version 0.9, not 2.0")
    refused_download(updater, {**offer, "version": "1.0"}, "not newer")


def link(target, kind=tarfile.SYMTYPE):
    entry = tarfile.TarInfo()
    entry.type = kind
    entry.linkname = target
    return entry


def special(kind):
    entry = tarfile.TarInfo()
    entry.type = kind
    entry.mode = 0o666
    return entry


TRICKS = {
    "a parent directory": [("../zephyl-tray", b"x")],
    "a parent directory within": [("bin/../../zephyl-tray", b"x")],
    "an absolute path": [("/tmp/zephyl-tray-trick", b"x")],
    "an absolute link": [("bin/zephyl-tray-link", link("/etc"))],
    "a link that leads out": [("bin/zephyl-tray-link", link("../../etc"))],
    "a link that leads out later": [("share/zephyl-tray/a", link("b/../../../../etc"))],
    "a file through a link": [("share/zephyl-tray/here", link("../..")),
                              ("share/zephyl-tray/here/zephyl-tray-file", b"x")],
    "a file in place of a link": [("bin/zephyl-tray-link", link("zephyl-tray")),
                                  ("bin/zephyl-tray-link", b"x")],
    "a hard link": [("bin/zephyl-tray-link", link("bin/zephyl-tray", tarfile.LNKTYPE))],
    "a device": [("bin/zephyl-tray-device", special(tarfile.CHRTYPE))],
    "a pipe": [("bin/zephyl-tray-pipe", special(tarfile.FIFOTYPE))],
    "a file of somebody else": [("bin/ls", b"x")],
    "a control character": [("bin/zephyl-tray-\x1b[2J", b"x")],
}


@pytest.mark.parametrize("trick", TRICKS)
def test_an_archive_cannot_write_outside(world, publisher, updater, trick):
    """The archives are signed with the right key, but must be refused nevertheless."""
    information = (world.prefix / "share" / "zephyl-tray" / "Info.json").read_bytes()
    entries = [("bin/zephyl-tray", NEW.encode()),
               ("share/zephyl-tray/Info.json", information.replace(b"1.0", b"2.0"))]
    archive = write_archive(publisher.directory / "trick.tar.gz", TRICKS[trick] + entries)
    item = sign("item", archive, publisher.server.url + ARCHIVE, publisher.key)
    publisher.publish_items(item)
    publisher.server.answers[ARCHIVE] = archive.read_bytes()
    outside = snapshot(world.root / "home"), os.path.exists("/tmp/zephyl-tray-trick")
    refused_download(updater, offer_of(updater), "")
    assert (snapshot(world.root / "home"), os.path.exists("/tmp/zephyl-tray-trick")) == outside


def test_a_valid_archive_is_accepted(world, publisher, updater):
    """Shows that the test above does not refuse every archive."""
    information = (world.prefix / "share" / "zephyl-tray" / "Info.json").read_bytes()
    archive = write_archive(publisher.directory / "plain.tar.gz", [
        ("./bin/zephyl-tray", NEW.encode()),
        ("share/zephyl-tray/a/b", link("../../../bin/zephyl-tray")),
        ("share/zephyl-tray/Info.json", information.replace(b"1.0", b"2.0"))])
    publisher.publish(archive)
    assert updater.download(offer_of(updater)) == {"ready": "2.0"}
    assert (updater.directory / "staged/share/zephyl-tray/a/b").read_text() == NEW


@pytest.mark.parametrize("contents", [b"\x1f", b"nothing", b"\x1f\x8b" + bytes(100)])
def test_an_invalid_archive_is_refused(publisher, updater, archive, contents):
    publisher.publish(archive)
    fake = publisher.directory / "fake"
    fake.write_bytes(contents)
    signature = subprocess.run(["openssl", "pkeyutl", "-sign", "-inkey", publisher.key, "-rawin",
                                "-in", fake], check=True, capture_output=True).stdout
    publisher.server.answers[ARCHIVE] = contents
    refused_download(updater, {**offer_of(updater), "length": len(contents),
                               "sha256": hashlib.sha256(contents).hexdigest(),
                               "signature": base64.b64encode(signature).decode()}, "damaged")


def test_the_tray_does_not_load_its_libraries():
    def libraries(program):
        return subprocess.run(["ldd", BUILD / program], capture_output=True, text=True,
                              check=True).stdout
    for name in ("libcurl", "libcrypto", "libssl", "libpugixml", "libz.so"):
        assert name not in libraries("zephyl-tray")
    assert "libcurl" in libraries("zephyl-tray-updater")
