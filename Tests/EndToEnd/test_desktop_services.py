"""Notifications, folder portal, applications and the single instance, on a private bus."""

import pathlib
import signal
import subprocess
import sys

import pytest
from gi.repository import GLib

from support.desktop_fixtures import bus, demo, start_demo, watcher  # noqa: F401
from support.desktop_services import APPLICATION, FolderChooser, NotificationServer
from support.tray import BUILD, eventually

NAME = "com.zephyl.tray"


# Notifications

def post(demo, identifier="a", **what):
    demo.do("notify", identifier=identifier,
            **{"title": "Zephyl: approval needed", "body": "Ana wants <x> & y", **what})


def test_a_notification_is_posted_replaced_and_withdrawn(bus, demo):
    server = NotificationServer(bus.peer())
    post(demo, action="Review…")
    eventually(lambda: len(server.posted) == 1)
    assert server.posted[0]["title"] == "Zephyl: approval needed"
    assert server.posted[0]["body"] == "Ana wants &lt;x&gt; &amp; y"
    assert server.posted[0]["actions"][0::2] == ["default", "show"]
    assert server.posted[0]["actions"][1::2] == ["Review…", "Review…"], "both do the same"
    assert server.posted[0]["hints"] == {"desktop-entry": NAME, "sound-name": "message-new-instant"}
    post(demo, body="again")
    eventually(lambda: len(server.posted) == 2)
    assert server.posted[1]["replaces"] == server.posted[0]["id"]
    demo.do("unnotify", identifier="a")
    eventually(lambda: server.closed == [server.posted[0]["id"]])
    post(demo)
    eventually(lambda: len(server.posted) == 3)
    assert server.posted[2]["replaces"] == 0
    assert server.queries <= 2  # twice only if the first call preceded the signal of its start


@pytest.mark.parametrize("name", ["Xfce Notify Daemon", "lxqt-notificationd"])
def test_a_server_that_shows_the_default_action_as_a_button_gets_no_second_one(bus, demo, name):
    server = NotificationServer(bus.peer(), name=name)
    post(demo, action="Review…")
    eventually(lambda: server.posted)
    assert server.posted[0]["actions"] == ["default", "Review…"]
    server.send_signal("ActionInvoked", "(us)", server.posted[0]["id"], "default")
    assert demo.event("notification")["identifier"] == "a"


def test_posts_in_quick_succession_become_one_notification(bus, demo):
    server = NotificationServer(bus.peer())
    for number in range(10):
        post(demo, body=str(number))
    eventually(lambda: server.posted and server.posted[-1]["body"] == "9")
    assert len({each["id"] for each in server.posted}) == 1


def test_a_notification_withdrawn_at_once_does_not_stay(bus, demo):
    server = NotificationServer(bus.peer())
    post(demo, "known")
    eventually(lambda: len(server.posted) == 1)
    post(demo, "brief", title="brief")
    demo.do("unnotify", identifier="brief")
    post(demo, "last", title="last")
    eventually(lambda: server.posted[-1]["title"] == "last")
    brief = [each["id"] for each in server.posted if each["title"] == "brief"]
    eventually(lambda: server.closed == brief)


def test_choosing_a_notification_or_its_button_is_reported(bus, demo):
    server = NotificationServer(bus.peer())
    post(demo, action="Review…")
    eventually(lambda: server.posted)
    number = server.posted[0]["id"]
    server.send_signal("ActionInvoked", "(us)", 4711, "default")
    server.send_signal("ActionInvoked", "(us)", number, "show")
    assert demo.event("notification")["identifier"] == "a"
    server.send_signal("NotificationClosed", "(uu)", number, 2)
    server.send_signal("ActionInvoked", "(us)", number, "default")
    post(demo)
    eventually(lambda: len(server.posted) == 2)
    assert server.posted[1]["replaces"] == 0
    assert demo.names().count("notification") == 1


def test_a_server_without_markup_and_buttons_gets_plain_text(bus, demo):
    server = NotificationServer(bus.peer(), ("body",))
    post(demo, action="Review…")
    eventually(lambda: server.posted)
    assert server.posted[0]["body"] == "Ana wants <x> & y"
    assert server.posted[0]["actions"] == []


def test_without_a_server_nothing_happens(bus, demo):
    post(demo)
    demo.do("running", identifier="org.zephyl.nobody")
    demo.event("running")
    server = NotificationServer(bus.peer())
    post(demo, "b")
    eventually(lambda: server.posted)


# Folder portal

def ask(demo):
    demo.do("folder", prompt="Share", message="Choose a folder to share")
    return demo.event("folder")


def test_a_folder_may_be_chosen_before_the_request_is_accepted(bus, demo):
    chooser = FolderChooser(bus.peer(), (0, "file:///home/ana/my%20folder"))
    assert ask(demo) == {"event": "folder", "path": "/home/ana/my folder"}
    question, = chooser.questions
    assert question["directory"] is True
    assert question["accept_label"] == "Share"
    assert question["title"] == "Choose a folder to share"


@pytest.mark.parametrize("code", [1, 2])
def test_a_cancelled_request_has_no_folder(bus, demo, code):
    FolderChooser(bus.peer(), (code,))
    assert ask(demo) == {"event": "folder"}


def test_a_portal_may_choose_its_own_handle(bus, demo):
    chooser = FolderChooser(bus.peer(), handle="/org/freedesktop/portal/desktop/request/old/1")
    demo.do("folder", prompt="Share", message="?")
    eventually(lambda: chooser.questions)
    eventually(lambda: chooser.respond(0, "file:///srv") or "folder" in demo.names())
    assert demo.event("folder")["path"] == "/srv"


def test_a_request_without_a_portal_fails(bus, demo):
    assert "There is no folder chooser" in ask(demo)["error"]
    FolderChooser(bus.peer(), version=2)
    demo.do("folder", prompt="Share", message="?")
    assert "cannot choose folders" in demo.event("folder", 2)["error"]


def test_a_portal_that_disconnects_is_an_error(bus, demo):
    peer = bus.peer()
    chooser = FolderChooser(peer)
    demo.do("folder", prompt="Share", message="?")
    eventually(lambda: chooser.questions)
    peer.close()
    assert "chosen" in demo.event("folder")["error"]


# Applications

@pytest.fixture
def application(bus):
    process = subprocess.Popen(
        [sys.executable, "-c", APPLICATION, bus.address, "com.zephyl.desktop"],
        cwd=pathlib.Path(__file__).parent, stdout=subprocess.PIPE, text=True)
    assert process.stdout.readline() == "ready\n"
    yield process
    process.kill()
    process.wait()


def running(demo, count=1):
    demo.do("running", identifier="com.zephyl.desktop")
    return demo.event("running", count)["pid"]


def test_an_application_that_owns_its_name_is_running(demo, application):
    assert running(demo) == application.pid
    demo.do("activate", identifier="com.zephyl.desktop")
    assert application.stdout.readline() == "activated {}\n"
    demo.do("terminate", identifier="com.zephyl.desktop")
    assert application.wait(10) == -signal.SIGTERM
    asked = iter(range(2, 1000))
    eventually(lambda: running(demo, next(asked)) == 0)


def test_the_first_request_waits_for_the_bus(application, start_demo):
    for _ in range(5):
        assert running(start_demo()) == application.pid


def test_a_name_without_an_owner_is_not_running(demo):
    assert running(demo) == 0
    demo.do("running", identifier="not a name")
    assert demo.event("running", 2)["pid"] == 0


MENU = [{"key": "open", "title": "Open", "action": "activate", "object": "com.zephyl.desktop"},
        {"key": "restart", "title": "Restart", "action": "restart"}]


def choose(item, label, token):
    item.do("ProvideXdgActivationToken", "(s)", token)
    item.event(item.find(label), "clicked")


def test_an_activation_carries_the_token_that_came_with_the_click(watcher, start_demo, application):
    demo = start_demo(MENU)
    running(demo)
    choose(watcher.item(), "Open", "token-1")
    line = application.stdout.readline()
    assert "'activation-token': 'token-1'" in line and "'desktop-startup-id': 'token-1'" in line


def test_an_unused_token_is_not_kept_for_a_later_activation(watcher, start_demo, application):
    demo = start_demo(MENU)
    running(demo)
    choose(watcher.item(), "Restart", "token-1")
    demo.event("chosen")
    demo.do("activate", identifier="com.zephyl.desktop")
    assert application.stdout.readline() == "activated {}\n"
    watcher.item().do("ProvideXdgActivationToken", "(s)", "token-2")
    demo.do("activate", identifier="com.zephyl.desktop")
    assert application.stdout.readline() == "activated {}\n"


def test_only_web_addresses_are_opened(start_demo, tmp_path):
    program = tmp_path / "xdg-open"
    program.write_text(f"#!/bin/sh\necho \"$@\" >> {tmp_path}/opened\nexit 3\n")
    program.chmod(0o755)
    demo = start_demo(PATH=f"{tmp_path}:/usr/bin:/bin")
    demo.do("open", url="--help")
    demo.do("open", url="file:///etc/passwd")
    demo.do("open", url="http://127.100.0.1:5173")
    demo.log_line("exited with status 3")
    assert (tmp_path / "opened").read_text() == "http://127.100.0.1:5173\n"


# Single instance

def ask_holder(bus, pid):
    return subprocess.run([BUILD / "status-item-demo", "--ask", str(pid)], timeout=20,
                          env={"DBUS_SESSION_BUS_ADDRESS": bus.address}).returncode


def owned(peer):
    return NAME in peer.call("org.freedesktop.DBus", "/org/freedesktop/DBus",
                             "org.freedesktop.DBus", "ListNames")[0]


def test_a_second_start_activates_only_the_owner_of_the_lock(bus, demo):
    peer = bus.peer()
    eventually(lambda: owned(peer))
    assert ask_holder(bus, demo.pid) == 0
    demo.event("reopened")
    assert ask_holder(bus, demo.pid + 1) == 1
    bus.kill()
    assert ask_holder(bus, demo.pid) == 1
    assert demo.names().count("reopened") == 1


def test_another_owner_of_the_name_is_not_activated(bus, start_demo):
    peer = bus.peer()
    peer.own(NAME)
    demo = start_demo()
    demo.log_line("another process owns the bus name")
    assert ask_holder(bus, demo.pid) == 1
    peer.release(NAME)
    eventually(lambda: ask_holder(bus, demo.pid) == 0)


def test_every_method_of_activation_opens_the_window(bus, demo):
    peer = bus.peer()
    eventually(lambda: owned(peer))
    arguments = {"Activate": ("(a{sv})", {"activation-token": GLib.Variant("s", "t")}),
                 "Open": ("(asa{sv})", ["file:///x"], {}),
                 "ActivateAction": ("(sava{sv})", "new", [GLib.Variant("i", 1)], {})}
    for count, (method, (signature, *values)) in enumerate(arguments.items(), 1):
        peer.call(NAME, "/com/zephyl/tray", "org.freedesktop.Application", method, signature,
                  *values)
        demo.event("reopened", count)
