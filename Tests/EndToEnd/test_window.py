"""The desktop window with a scripted tray: its contents, its requests and its state."""

import time

import pytest

from support.dialogs import WaylandScreen
from support.scripted_tray import DIAGNOSTICS, ScriptedTray
from support.tray import eventually
from support.window import DesktopWindow, keep, stays

OFFICE, LAB = "5a7d0b7e-0000-4000-8000-000000000001", "5a7d0b7f-0000-4000-8000-000000000002"
SERVERS = [
    {"id": OFFICE, "name": "Office", "label": "Office", "accent": "#7a3db8", "enabled": True,
     "usesTailnet": True, "running": True, "enrolled": True, "webUrl": "http://127.100.0.1:80",
     "relay": "relay-1"},
    {"id": LAB, "name": "Lab", "label": "", "accent": "", "enabled": True, "usesTailnet": True,
     "running": False, "enrolled": False, "enrolError": "key expired"}]
FOLDERS = [{"root": "/src/a", "name": "a"}, {"root": "/src/b", "name": "b", "servers": [LAB]}]


@pytest.fixture
def tray():
    tray = ScriptedTray()
    tray.answers["GET /servers"] = (200, {"servers": SERVERS})
    tray.answers["GET /roots"] = (200, {"roots": FOLDERS})
    yield tray
    tray.close()


@pytest.fixture
def launch(screen, tray):
    """Starts windows, and closes them after the test."""
    windows = []

    def start(tray=tray, **environment):
        windows.append(DesktopWindow(screen, tray, **environment))
        return windows[-1]

    yield start
    for window in windows:
        window.close()


@pytest.fixture
def window(launch):
    """A window that has shown its servers."""
    window = launch()
    window.row("Office, Connected")
    window.has_focus_on("Office, Connected")
    return window


def asks(tray, *requests):
    """Waits until the newest requested changes are these."""
    eventually(lambda: [(f"{method} {path}", body) for method, path, _, body in tray.received
                        if method != "GET"][-len(requests):] == list(requests), what=str(requests))


# Contents

def test_it_shows_the_servers_and_the_selected_one(screen, window):
    assert window.rows() == ["Office, Connected", "Lab, Network down", "Add server…"]
    assert window.part("text", "Name").text == "Office"
    assert window.part("button menu", "Color: Purple")
    assert window.part("check box", "Connect to this server").has("checked")
    assert {"http://127.100.0.1:80", "relay-1", "Agent connected"} <= set(window.labels())
    assert window.part("check box", "/src/a").has("checked")
    assert not window.part("check box", "/src/b").has("checked")
    keep(screen, "window-light")
    screen.press("Down")
    window.label("key expired")
    window.label("Ask for a fresh invite")
    assert window.part("check box", "/src/b").has("checked")
    assert not window.part("push button", "Open in browser").has("enabled")
    keep(screen, "window-error-light")


def test_everything_that_takes_the_focus_has_a_name(screen, window):
    pages = (lambda: window.part("text", "Name"), lambda: window.label("key expired"),
             lambda: window.part("text", "Invite key"))
    for wait_for_page in pages:
        wait_for_page()
        parts = [each for each in window.parts() if each.has("focusable")]
        assert len(parts) > 5
        assert all(each.name for each in parts), [(each.role, each.name) for each in parts]
        screen.press("Down")


def test_the_keyboard_reaches_everything(screen, window):
    reached = []
    for _ in range(12):
        reached.append(window.focused())
        screen.press("Tab")
        eventually(lambda: window.focused() not in (None, reached[-1]), what="the next part")
    assert [name for name in reached if not name.startswith("http") and name != "relay-1"][:9] == [
        "Office, Connected", "Name", "Color: Purple", "Connect to this server", "Open in browser",
        "Remove…", "/src/a", "/src/b", "Share a folder…"], reached


def test_untrusted_texts_are_not_interpreted(tray, launch):
    tray.answers["GET /servers"] = (200, {"servers": [SERVERS[1] | {
        "name": "<b>Lab</b>\x1b\u202e", "agentError": "<a href='http://x'>x</a>\x07", "enrolError": None}]})
    tray.answers["GET /roots"] = (200, {"roots": [{"root": "/src/&a<i>", "name": "a"}]})
    window = launch()
    window.row("<b>Lab</b>\\x1b\\u202e, Network down")
    window.label("<a href='http://x'>x</a>\\x07")
    assert window.part("check box", "/src/&a<i>")
    assert not [each for each in window.parts() if each.role == "link"]


def test_the_progress_of_indexing_is_a_bar(tray, window):
    assert not window.find("progress bar", "Indexing")
    tray.answers["GET /diagnostics"] = (200, DIAGNOSTICS | {"indexing": [
        {"ready": False, "embedding": True, "filesEmbedded": 30, "lexicalFiles": 40}]})
    window.label("Indexing, 30 of 40 files")
    assert window.part("progress bar", "Indexing")
    tray.answers["GET /diagnostics"] = (200, DIAGNOSTICS | {
        "agent": {"reachable": False, "running": False, "state": None}})
    window.label("Agent not running")


def test_without_the_agent_the_page_explains_why_there_are_no_folders(tray, window):
    tray.answers["GET /roots"] = (502, {"error": "no agent"})
    window.label("The folders are shown when the agent runs.")
    window.wait_until_gone("check box", "/src/a")


# Changes

def test_each_change_sends_its_request(screen, tray, window):
    path = f"/servers/{OFFICE}"
    window.replace("text", "Name", "Home")
    screen.press("Return")
    asks(tray, (f"POST {path}/label", '{"label":"Home"}'))
    window.part("button menu", "Color: Purple").grab_focus()
    window.has_focus_on("Color: Purple")
    screen.press("space")
    eventually(lambda: screen.windows_of(window.pid) == 2, what="the menu")
    screen.press("Down", "Down", "Return")
    asks(tray, (f"POST {path}/accent", '{"accent":"#e07a1f"}'))
    window.toggle("Connect to this server")
    asks(tray, (f"POST {path}/enabled", '{"enabled":false}'))
    window.toggle("/src/a")
    asks(tray, (f"POST {path}/roots/scope", '{"root":"/src/a","shared":false}'))
    window.toggle("/src/b")
    asks(tray, (f"POST {path}/roots/scope", '{"root":"/src/b","shared":true}'))
    window.press("Share a folder…")
    asks(tray, (f"POST {path}/roots", ""))
    window.press("Restart agent")
    asks(tray, ("POST /agent/restart", ""))
    window.label("The agent restarts…")


def test_a_refused_change_is_shown_and_keeps_typed_text(screen, tray, window):
    tray.answers[f"POST /servers/{OFFICE}/label"] = (400, {"error": "The change could not be saved."})
    window.replace("text", "Name", "Home")
    screen.press("Return")
    window.label("The change could not be saved.")
    assert window.part("text", "Name").text == "Home"
    tray.answers[f"POST /servers/{OFFICE}/enabled"] = (400, {"error": "Disk full."})
    window.toggle("Connect to this server")
    window.label("Disk full.")
    eventually(lambda: window.part("check box", "Connect to this server").has("checked"))


def test_diagnostics_are_copied(screen, window):
    window.press("Copy diagnostics")
    window.label("The diagnostics are on the clipboard.")
    assert '"reachable": true' in screen.clipboard()


def test_a_server_is_removed_only_after_a_confirmation(screen, tray, window):
    window.press("Remove…")
    window.label("Remove “Office”?")
    window.has_focus_on("Cancel")
    screen.press("Return")
    window.wait_until_gone("push button", "Cancel")
    assert not [entry for entry in tray.received if entry[0] == "DELETE"]
    window.press("Remove…")
    window.has_focus_on("Cancel")
    screen.press("Tab")
    window.has_focus_on("Remove")
    screen.press("space")
    asks(tray, (f"DELETE /servers/{OFFICE}", ""))


def test_typed_text_survives_polls_and_an_unreachable_tray(screen, tray, window):
    window.replace("text", "Name", "Hom")
    asked = len(tray.received)
    renamed = [SERVERS[0] | {"name": "Renamed elsewhere"}, SERVERS[1]]
    tray.answers["GET /servers"] = (200, {"servers": renamed})
    eventually(lambda: len(tray.received) >= asked + 8, what="two more polls")
    window.row("Renamed elsewhere, Connected")
    assert window.part("text", "Name").text == "Hom"
    tray.close()
    window.label("Zephyl's tray is not running")
    screen.type("e")
    tray.listen()
    window.row("Renamed elsewhere, Connected")
    assert window.part("text", "Name").text == "Home"
    screen.press("Escape")
    eventually(lambda: window.part("text", "Name").text == "Renamed elsewhere")


# Routes

def test_it_shows_requested_screens(tray, window):
    tray.requests.append("join")
    window.has_focus_on("Invite key")
    tray.requests.append(f"servers/{LAB}/rename")
    window.has_focus_on("Name")
    assert window.part("text", "Name").text == "Lab"
    tray.requests.append("servers")
    window.has_focus_on("Lab, Network down")
    tray.requests.append(f"servers/{OFFICE}/remove")
    window.label("Remove “Office”?")


@pytest.mark.parametrize("route, focus", [
    ("join", "Invite key"), ("servers", "Office, Connected"), (f"servers/{LAB}/rename", "Name"),
    (f"servers/{LAB}/remove", "Cancel")])
def test_it_starts_at_a_requested_screen(tray, launch, route, focus):
    tray.requests.append(route)
    launch().has_focus_on(focus)


def test_a_route_to_a_removed_server_shows_a_message(tray, window):
    tray.requests.append("servers/gone/rename")
    window.label("That server is gone.")


def test_onboarding_starts_with_the_invite_key(launch):
    launch(ZEPHYL_ONBOARD="1").has_focus_on("Invite key")


# Joining

@pytest.mark.parametrize("error", [
    "That doesn't look like a Zephyl invite key.",
    "The invite key's fingerprint is invalid. Ask for a fresh invite.",
    "The invite key is missing its key section. Ask for a fresh invite.",
    "This invite key (v3) is newer than this copy of Zephyl. Update Zephyl and try again."])
def test_a_refused_key_is_explained_in_place(screen, tray, launch, error):
    tray.answers["GET /servers"] = (200, {"servers": []})
    tray.answers["POST /invite"] = (400, {"error": error})
    window = launch()
    window.has_focus_on("Invite key")
    screen.type("something")
    screen.press("Return")
    window.label(error)
    assert window.part("text", "Invite key").text == "something"
    assert window.part("push button", "Join").has("enabled")


def test_joining_shows_its_progress_until_the_server_is_connected(screen, tray, launch):
    tray.answers["GET /servers"] = (200, {"servers": []})
    window = launch()
    window.has_focus_on("Invite key")
    screen.type("inv_v2_x")
    tray.answers["GET /servers"] = (200, {"servers": [SERVERS[1] | {"enrolError": None}]})
    screen.press("Return")
    window.label("Starting the private network…")
    assert window.part("progress bar", "Joining")
    keep(screen, "window-joining-light")
    running = SERVERS[1] | {"enrolError": None, "running": True}
    tray.answers["GET /servers"] = (200, {"servers": [running]})
    window.label("Connecting to the server…")
    tray.answers["GET /servers"] = (200, {"servers": [running | {"enrolled": True}]})
    window.row("Lab, Connected")
    window.has_focus_on("Lab, Connected")


# The tray

def polls(tray):
    return sum(entry[:2] == ("GET", "/status") for entry in tray.received)


def test_it_polls_about_once_a_second(tray, window):
    times = []
    for count in range(polls(tray) + 1, polls(tray) + 4):
        eventually(lambda count=count: polls(tray) >= count)
        times.append(time.monotonic())
    assert 1.5 < times[2] - times[0] < 3, times


@pytest.mark.parametrize("way", ["closed", "minimized"])
def test_a_hidden_window_does_not_poll_and_is_refreshed_when_shown(screen, tray, window, way):
    if way == "closed":
        screen.press("ctrl+w")
    else:
        screen.run("xdotool", "windowminimize", screen.window_ids(window.pid)[0])
    eventually(lambda: not window.is_visible(), what="a hidden window")
    count = eventually(lambda: stays(lambda count=len(tray.received): len(tray.received) == count, 0.5)
                       and len(tray.received))
    assert stays(lambda: len(tray.received) == count)
    tray.requests.append("join")
    screen.bus.peer().call("com.zephyl.desktop", "/com/zephyl/desktop", "org.freedesktop.Application",
                           "Activate", "(a{sv})", {})
    eventually(window.is_active, what="the focus")
    window.has_focus_on("Invite key")


def test_a_second_start_brings_the_first_window_to_the_front(screen, launch, window):
    screen.press("ctrl+w")
    eventually(lambda: not window.is_visible(), what="a hidden window")
    assert launch().ends() == 0
    eventually(window.is_active, what="the first window")


def test_it_shows_that_the_tray_is_not_running_and_reconnects(tray, window):
    tray.close()
    window.label("Zephyl's tray is not running")
    window.row("Office, Unknown")
    window.label("Agent unknown")
    tray.listen()
    window.row("Office, Connected")
    assert not [text for text in window.labels() if "tray" in text]


APPLICATION = """<node><interface name="org.freedesktop.Application">
  <method name="Activate"><arg type="a{sv}" direction="in"/></method>
</interface></node>"""


@pytest.fixture
def other_tray(screen, launch):
    """Another run of the tray on the bus, which opens a window on request."""
    peer = screen.bus.peer()
    peer.opened = []
    peer.export("/com/zephyl/tray", APPLICATION, {"Activate": lambda *_: peer.opened.append(launch())})
    peer.own("com.zephyl.tray")
    yield peer
    peer.close()


def test_a_restarted_tray_opens_a_window_in_its_place(tray, launch, window, other_tray):
    tray.token = "f" * 32
    eventually(lambda: other_tray.opened, what="a request to open a window")
    tray.token = "0123456789abcdef0123456789abcdef"  # the token that the new window would get
    assert window.ends() == 0
    other_tray.opened[0].row("Office, Connected")
    eventually(lambda: any("accepting commands" in line for line in other_tray.opened[0].lines))


def test_a_restarted_tray_does_not_discard_typed_text(screen, tray, window, other_tray):
    window.replace("text", "Name", "Home")
    tray.token = "f" * 32
    window.label("Zephyl's tray was started again")
    assert stays(lambda: not other_tray.opened, 1.5)
    tray.token = "0123456789abcdef0123456789abcdef"
    window.row("Office, Connected")
    assert window.part("text", "Name").text == "Home"


def test_without_access_to_a_tray_it_shows_a_message(launch):
    window = launch(tray=None)
    window.label("This window has no connection to Zephyl's tray.")


# The program

@pytest.mark.parametrize("environment", [{"DISPLAY": ""}, {"DISPLAY": ":4711"}], ids=["none", "a wrong one"])
def test_without_a_display_it_accepts_commands(launch, environment):
    window = launch(**environment)
    eventually(lambda: any("accepting commands" in line for line in window.lines), what="a socket")
    assert not window.is_visible()
    window.process.terminate()
    assert window.ends() == 0


def test_quitting_and_sigterm_end_it(screen, launch):
    for end in (lambda window: screen.press("ctrl+q"), lambda window: window.process.terminate()):
        window = launch()
        window.has_focus_on("Office, Connected")
        end(window)
        assert window.ends() == 0


def test_it_appears_soon(screen, launch):
    times = []
    for _ in range(5):
        window = launch()
        eventually(window.is_visible, what="the window")
        times.append(time.monotonic() - window.started)
        window.process.terminate()
        window.ends()
    print("seconds until the window is on screen:", sorted(times))
    assert sorted(times)[2] < 0.4, times


# Appearance

def background(screen, window):
    left, upper, width, height = window.part("panel", "Folders shared with this server").box()
    picture = screen.picture()
    at = 3 * ((upper + height - 6) * picture.width + left + width // 2)
    return sum(picture.pixels[at:at + 3]) / 3


def test_it_is_dark_if_the_desktop_is(screen, launch):
    peer = screen.prefer_dark()
    try:
        window = launch()
        window.row("Office, Connected")
        assert background(screen, window) < 80
        keep(screen, "window-dark")
        screen.press("Down")
        window.label("key expired")
        keep(screen, "window-error-dark")
    finally:
        peer.close()


def test_it_is_light_elsewhere(screen, window):
    assert background(screen, window) > 200


def test_it_grows_with_the_scale_of_the_screen(screen, launch):
    widths = []
    for scale in ("1", "2"):
        window = launch(QT_SCALE_FACTOR=scale)
        window.row("Office, Connected")
        eventually(window.is_active)
        box = screen.run("xdotool", "getwindowfocus", "getwindowgeometry", "--shell")
        widths.append(int(box.split("WIDTH=")[1].split()[0]))
        keep(screen, f"window-scale-{scale}")
        window.process.terminate()
        window.ends()
    assert abs(widths[1] - 2 * widths[0]) <= 2


def test_on_wayland_it_is_a_wayland_program(tray):
    screen = WaylandScreen(1)
    window = DesktopWindow(screen, tray)
    try:
        eventually(lambda: polls(tray) > 0, what="a poll of a visible window")
        libraries = open(f"/proc/{window.pid}/maps").read()
        assert "libqwayland" in libraries and "libqxcb.so" not in libraries
        window.process.terminate()
        assert window.ends() == 0
    finally:
        window.close()
        screen.close()
