"""Connections of the session bus cannot imitate a service without owning its name."""

import re
import subprocess
import sys

import pytest
from gi.repository import GLib

from support.desktop_fixtures import bus, demo, start_demo, watcher  # noqa: F401
from support.desktop_services import NOTIFICATIONS, FolderChooser, NotificationServer
from support.session_bus import WATCHER, Item, SessionBus, Watcher
from support.tray import BUILD, eventually

TRAY = "com.zephyl.tray"
BUS = "org.freedesktop.DBus"
BUS_PATH = "/org/freedesktop/DBus"
ITEM_PATH = "/org/ayatana/NotificationItem/zephyl_tray"


@pytest.fixture
def stranger(bus):
    return bus.peer()


@pytest.fixture(params=["broadcast", "addressed"])
def forge(request, stranger, demo):
    """Sends a forged signal, and waits until the tray has handled it."""
    def send(path, interface, member, signature, *values):
        tray = unique_name(stranger)
        stranger.emit(path, interface, member, GLib.Variant(signature, values),
                      None if request.param == "broadcast" else tray)
        # Messages of one sender are handled in their order.
        stranger.call(tray, ITEM_PATH, "org.freedesktop.DBus.Peer", "Ping")
    return send


def unique_name(peer):
    def owner():
        try:
            return peer.call(BUS, BUS_PATH, BUS, "GetNameOwner", "(s)", TRAY)[0]
        except GLib.Error:
            return None
    return eventually(owner, what="an owner of the tray's name")


# The folder chooser

def respond(forge, chooser, *uris):
    forge(chooser.request, "org.freedesktop.portal.Request", "Response", "(ua{sv})", 0,
          {"uris": GLib.Variant("as", uris)})


def ask(demo):
    demo.do("folder", prompt="Share", message="Choose a folder to share")


def test_only_the_portal_can_choose_a_folder(bus, demo, forge):
    chooser = FolderChooser(bus.peer())
    ask(demo)
    eventually(lambda: chooser.questions)
    respond(forge, chooser, "file:///")
    assert "folder" not in demo.names()
    chooser.respond(0, "file:///srv")
    assert demo.event("folder")["path"] == "/srv"


def test_only_the_portal_can_choose_a_folder_under_its_own_handle(bus, demo, forge):
    chooser = FolderChooser(bus.peer(), handle="/org/freedesktop/portal/desktop/request/old/1")
    ask(demo)
    eventually(lambda: chooser.questions)
    respond(forge, chooser, "file:///")
    assert "folder" not in demo.names()
    eventually(lambda: chooser.respond(0, "file:///srv") or "folder" in demo.names())
    assert demo.event("folder")["path"] == "/srv"


def test_the_handle_of_a_request_cannot_be_guessed(bus, demo):
    chooser = FolderChooser(bus.peer(), (1,))
    for count in range(1, 4):
        ask(demo)
        demo.event("folder", count)
    tokens = {question["handle_token"] for question in chooser.questions}
    assert len(tokens) == 3
    assert all(re.fullmatch(r"zephyl_tray_[0-9a-f]{32}", token) for token in tokens)


def test_answers_of_a_disconnected_portal_are_ignored(bus, demo):
    old = bus.peer()
    chooser = FolderChooser(old)
    ask(demo)
    eventually(lambda: chooser.questions)
    old.release("org.freedesktop.portal.Desktop")
    assert demo.event("folder")["unanswered"]
    successor = FolderChooser(bus.peer())
    ask(demo)
    eventually(lambda: successor.questions)
    old.emit(successor.request, "org.freedesktop.portal.Request", "Response",
             GLib.Variant("(ua{sv})", (0, {"uris": GLib.Variant("as", ["file:///"])})))
    old.call(unique_name(old), ITEM_PATH, "org.freedesktop.DBus.Peer", "Ping")
    successor.respond(0, "file:///srv")
    assert demo.event("folder", 2)["path"] == "/srv"


@pytest.mark.parametrize("uri", ["mtp://phone/Photos", "smb://host/share", "trash:///"])
def test_a_folder_that_is_not_local_is_an_error(bus, demo, uri):
    FolderChooser(bus.peer(), (0, uri))
    ask(demo)
    answer = demo.event("folder")
    assert "returned no folder on this machine" in answer["error"]
    assert "unanswered" not in answer, "the user is not asked again"


# Applications

@pytest.fixture
def victim(bus):
    """An unrelated program."""
    program = ("import sys; from support.session_bus import Peer, GLib\n"
               "print(Peer(sys.argv[1]).name, flush=True)\nGLib.MainLoop().run()\n")
    process = subprocess.Popen([sys.executable, "-c", program, bus.address],
                               stdout=subprocess.PIPE, text=True)
    process.name = process.stdout.readline().strip()
    yield process
    process.kill()
    process.wait()


def test_only_the_bus_can_report_owners_of_names(demo, forge, victim):
    demo.do("running", identifier="com.zephyl.desktop")
    assert demo.event("running")["pid"] == 0
    forge(BUS_PATH, BUS, "NameOwnerChanged", "(sss)", "com.zephyl.desktop", "", victim.name)
    for count in (2, 3):
        demo.do("terminate", identifier="com.zephyl.desktop")
        demo.do("running", identifier="com.zephyl.desktop")
        assert demo.event("running", count)["pid"] == 0
    assert victim.poll() is None


# Notifications

def test_only_the_server_can_report_events_of_a_notification(bus, demo, forge):
    server = NotificationServer(bus.peer())
    demo.do("notify", identifier="a", title="Zephyl: approval needed", body="?", action="Review…")
    eventually(lambda: server.posted)
    number = server.posted[0]["id"]
    forge(server.PATH, NOTIFICATIONS, "ActionInvoked", "(us)", number, "show")
    forge(server.PATH, NOTIFICATIONS, "ActivationToken", "(us)", number, "stolen")
    forge(server.PATH, NOTIFICATIONS, "NotificationClosed", "(uu)", number, 2)
    demo.settle()
    assert "notification" not in demo.names()
    server.send_signal("ActionInvoked", "(us)", number, "show")
    assert demo.event("notification")["identifier"] == "a"


# The panel

def test_only_the_watcher_can_report_a_host(watcher, demo, forge):
    watcher.item()
    forge("/StatusNotifierWatcher", WATCHER, "StatusNotifierHostRegistered", "()")
    watcher.announce_host()
    watcher.item(2)
    # The registrations of both announcements would have been sent before this answer.
    watcher.peer.wait_for(unique_name(watcher.peer))
    watcher.peer.emit("/", "org.zephyl.Test", "Done")  # after the received calls were handled
    assert len(watcher.items) == 2


def test_activate_fails_only_for_plasmas_shell(bus, watcher, demo):
    item = watcher.item()
    shell = bus.peer()
    shell.own("org.kde.plasmashell")
    asked = Item(shell, item.service, item.path)
    with pytest.raises(GLib.Error, match="the item is a menu"):
        asked.do("Activate", "(ii)", 0, 0)
    asked.do("SecondaryActivate", "(ii)", 0, 0)
    demo.event("reopened")
    item.do("Activate", "(ii)", 0, 0)
    demo.event("reopened", 2)


# Floods, and a bus that does not answer

def test_pending_calls_are_bounded(
        watcher, demo, stranger, tmp_path):
    item = watcher.item()
    quit_row, menu_path = item.find("Quit Zephyl"), item.menu_path
    demo.do("block", until=str(tmp_path / "go-on"))
    demo.event("blocked")
    stranger.send_calls(1000, item.service, item.path, Item.ITEM, "Activate", "(ii)", 0, 0)
    stranger.send_calls(1000, item.service, menu_path, Item.MENU, "Event", "(isvu)", quit_row,
                        "clicked", GLib.Variant("i", 0), 0)
    # Messages of one sender are handled in their order, and answered while the main thread waits.
    stranger.call(item.service, item.path, "org.freedesktop.DBus.Peer", "Ping", limit=30_000)
    demo.log_line("requests of the desktop are waiting; further ones are dropped")
    assert demo.names() == ["blocked"]
    (tmp_path / "go-on").touch()
    item.do("SecondaryActivate", "(ii)", 0, 0)
    demo.do("running", identifier="org.zephyl.nobody")
    demo.event("running")
    assert 0 < len(demo.names()) - 2 <= 64 + 1  # without "blocked" and "running"
    known = demo.names().count("reopened")
    item.do("Activate", "(ii)", 0, 0)
    demo.event("reopened", known + 1)


def test_it_ends_while_calls_keep_arriving(watcher, demo, stranger):
    item = watcher.item()
    stranger.send_calls(50_000, item.service, item.path, Item.ITEM, "Scroll", "(is)", 1, "vertical")
    assert demo.close() == 0


def test_a_bus_that_does_not_answer_counts_as_absent(start_demo):
    silent = SessionBus().start()
    try:
        silent.suspend()
        demo = start_demo(DBUS_SESSION_BUS_ADDRESS=silent.address)
        demo.log_line("no session bus answers")
        asked = subprocess.run([BUILD / "status-item-demo", "--ask", str(demo.pid)], timeout=10,
                               env={"DBUS_SESSION_BUS_ADDRESS": silent.address})
        assert asked.returncode == 1
        silent.resume()
        Watcher(silent.peer()).item(limit=15)
        assert len([line for line in demo.lines if "no session bus answers" in line]) == 1
    finally:
        silent.close()
