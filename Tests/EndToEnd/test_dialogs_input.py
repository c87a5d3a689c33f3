"""Unrequested windows: keys and clicks that were meant for another window are ignored, and a request
must be read before it can be allowed."""

import signal
import time

import pytest
from gi.repository import GLib

from support.dialogs import APPROVAL, INVITE, Typing
from support.tray import eventually

UNREQUESTED = {"alert": {**APPROVAL, "requestedByUser": False}}
LONG = {**APPROVAL, "explanation": "Command:\n" + "\n".join(f"line {n}" for n in range(200))}


@pytest.fixture
def editor(open_window):
    """Another window, in which the user types."""
    return open_window(alert=INVITE).shown()


def typed(editor):
    return next(each.text for each in editor.accessible().all() if each.name == "inv_v2_…")


def buttons_of(window):
    return [each for each in window.accessible().all() if each.role == "push button"]


def enabled(window):
    return [each.name for each in buttons_of(window) if each.has("enabled")]


def test_the_window_does_not_take_the_focus_and_asks_for_attention(screen, open_window, editor):
    window = open_window(**UNREQUESTED)
    window.report("shown")
    screen.type("cd project")
    eventually(lambda: typed(editor) == "cd project", what="the typed text in the other window")
    assert editor.is_active()
    number = screen.window_ids(window.process.pid)[0]
    state = eventually(lambda: (lambda text: "ATTENTION" in text and text)(
        screen.run("xprop", "-id", number, "_NET_WM_STATE")), what="attention")
    assert "_NET_WM_STATE_DEMANDS_ATTENTION" in state
    assert enabled(window) == []
    assert window.reports == [{"shown": True}]


@pytest.mark.parametrize("keys", [Typing.KEYS, ["Return"], ["space"], ["Escape"], ["alt+F4"],
                                  ["Tab", "space"], ["Left", "space"]], ids=" ".join)
def test_continued_typing_in_a_window_that_took_the_focus_does_nothing(screen, open_window, keys):
    """On some desktops every new window gets the focus."""
    window = open_window(**UNREQUESTED)
    with Typing(screen, keys) as typing:
        window.report("shown")
        screen.activate(window.process.pid)
        typing.types(25)
        assert window.is_active()
    assert window.reports == [{"shown": True}]
    screen.accepting(window.process.pid)
    screen.press("Return")
    assert window.answer()["button"] == 0


@pytest.mark.parametrize("keys", [["Return"], ["Tab", "space"], ["Escape"]], ids=" ".join)
def test_keys_that_waited_while_the_program_was_held_up_do_nothing(screen, open_window, keys):
    """As on a machine that is too busy: they are all there at once when the program goes on."""
    window = open_window(**UNREQUESTED)
    window.report("shown")
    screen.activate(window.process.pid)
    window.process.send_signal(signal.SIGSTOP)
    with Typing(screen, keys) as typing:
        typing.types(25)
        window.process.send_signal(signal.SIGCONT)
        typing.types(3)
    assert window.reports == [{"shown": True}]
    screen.accepting(window.process.pid)
    screen.press("Return")
    assert window.answer()["button"] == 0


def test_a_held_key_does_nothing(screen, open_window):
    window = open_window(**UNREQUESTED)
    window.report("shown")
    screen.activate(window.process.pid)
    screen.run("xdotool", "keydown", "Return")
    try:
        assert not appears(lambda: window.reports != [{"shown": True}], 2.0)
    finally:
        screen.run("xdotool", "keyup", "Return")
    assert window.reports == [{"shown": True}]


def appears(condition, limit):
    """Returns whether a condition becomes true within a time, for conditions that must not."""
    end = time.monotonic() + limit
    while time.monotonic() < end:
        if condition():
            return True
        time.sleep(0.02)
    return False


@pytest.mark.parametrize("button", [0, 1, 2])
def test_a_click_meant_for_another_window_does_nothing(screen, open_window, button):
    window = open_window(**UNREQUESTED)
    window.report("shown")
    target = buttons_of(window)[button]
    screen.click(target)  # makes it active
    eventually(window.is_active, what="the focus")
    screen.click(target)
    assert window.reports == [{"shown": True}]
    screen.accepting(window.process.pid)
    screen.click(target)
    assert window.answer()["button"] == button


def test_each_activation_restarts_the_guard(screen, open_window, editor):
    window = open_window(**UNREQUESTED).reviewed()
    screen.activate(editor.process.pid)
    eventually(lambda: enabled(window) == [], what="disabled buttons")
    screen.activate(window.process.pid)
    screen.press("Tab", "space", "Return", "Escape")
    assert window.reports == [{"shown": True}]
    screen.accepting(window.process.pid)
    screen.press("Tab", "space")
    assert window.answer()["button"] == 1


def test_a_requested_approval_is_guarded_once_the_user_has_left_it(screen, open_window, editor):
    window = open_window(alert=APPROVAL).shown()
    eventually(lambda: enabled(window) == APPROVAL["buttons"], what="enabled buttons")
    screen.activate(editor.process.pid)
    eventually(lambda: enabled(window) == [], what="disabled buttons")
    screen.activate(window.process.pid)
    screen.press("Tab", "space", "Return", "Escape")
    assert window.reports == [{"shown": True}]
    screen.accepting(window.process.pid)
    screen.press("Return")
    assert window.answer()["button"] == 0


@pytest.mark.parametrize("button", [0, 1, 2])
def test_it_is_answered_by_keyboard(screen, open_window, button):
    window = open_window(**UNREQUESTED).reviewed()
    screen.press(*["Tab"] * button, "space")
    assert window.answer()["button"] == button


@pytest.mark.parametrize("button", [0, 1, 2])
def test_it_is_answered_by_a_screen_reader(open_window, button):
    window = open_window(**UNREQUESTED).reviewed()
    buttons_of(window)[button].press()
    assert window.answer()["button"] == button


@pytest.mark.parametrize("keys", [["Left"], ["Right"], ["Up"], ["Down"], ["Right", "Right"]],
                         ids=" ".join)
def test_arrows_never_reach_a_button_that_permits_something(screen, open_window, keys):
    window = open_window(**UNREQUESTED).reviewed()
    screen.press(*keys, "space")
    assert window.answer()["button"] == 0


@pytest.mark.parametrize("keys", [["End"], ["Next"] * 20, ["shift+Tab", "ctrl+End"]], ids=" ".join)
def test_nothing_is_permitted_before_the_text_was_read_to_its_end(screen, open_window, keys):
    window = open_window(alert={**LONG, "requestedByUser": False}).reviewed()
    assert enabled(window) == ["Deny"]
    allow = buttons_of(window)[1]
    assert allow.description == "Scroll to the end of the text before you allow this."
    with pytest.raises(GLib.Error):
        allow.press()
    screen.press("Next")
    assert enabled(window) == ["Deny"]
    screen.press(*keys)
    eventually(lambda: enabled(window) == APPROVAL["buttons"], what="enabled buttons")
    assert allow.description == ""
    allow.press()
    assert window.answer()["button"] == 1


def test_wheel_events_meant_for_another_window_do_not_scroll(screen, open_window):
    window = open_window(alert={**LONG, "requestedByUser": False})
    window.report("shown")
    screen.activate(window.process.pid)
    left, upper, width, height = window.accessible().find("text", "Details").box()
    screen.run("xdotool", "mousemove", str(left + width // 2), str(upper + height // 2),
               "click", "--repeat", "30", "--delay", "5", "5")
    screen.accepting(window.process.pid)
    assert enabled(window) == ["Deny"]
    screen.run("xdotool", "click", "--repeat", "100", "--delay", "5", "5")
    eventually(lambda: enabled(window) == APPROVAL["buttons"], what="enabled buttons")


def test_bringing_the_window_to_the_front_keeps_typed_text(screen, open_window, editor):
    screen.type("inv_v2_half")
    other = open_window(**UNREQUESTED).reviewed()
    editor.send({"bringToFront": {"activationToken": "token_TIME0"}})
    eventually(editor.is_active, what="the focus")
    screen.type("_done")
    eventually(lambda: typed(editor) == "inv_v2_half_done", what="all of the text")
    other.send({"bringToFront": {"activationToken": ""}})
    eventually(other.is_active, what="the focus")


def test_an_unrequested_log_is_not_closed_by_continued_typing(screen, open_window):
    window = open_window(logWindow={"title": "Agent Exited", "message": "It exited.", "shownText": "one",
                                    "fullText": "one\x1b[2J\ntwo", "requestedByUser": False})
    with Typing(screen, ["Return", "Escape"]) as typing:
        window.report("shown")
        screen.activate(window.process.pid)
        typing.types(15)
    assert window.reports == [{"shown": True}]
    screen.accepting(window.process.pid)
    window.accessible().find("push button", "Copy Full Log").press()
    eventually(lambda: screen.clipboard() == "one␛[2J\ntwo", what="the copied log")
    screen.press("Return")
    assert window.report("logEvent") == "closed"


def test_many_combining_characters_do_not_delay_the_window(open_window):
    window = open_window(alert={**APPROVAL, "explanation": "a" + "\u0301" * 100_000})
    window.report("shown")
    assert window.costs[0] < 3
