"""Requests that reach outside a shared folder, from the agent to a window, and the answers.
Uses the real tray, real windows, the sandbox's agent, and synthetic keys."""

import os
import pathlib
import signal
import subprocess

import pytest

from support.approvals import (  # noqa: F401 (fixtures)
    Agent, Prompt, agent, reachable, tray, watcher, windows, world)
from support.desktop_services import NOTIFICATIONS, NotificationServer
from support.session_bus import outline
from support.tray import eventually


@pytest.mark.parametrize("keys, state", [
    (["Return"], "denied"), (["Escape"], "denied"), (["Tab", "space"], "approved")])
def test_a_request_is_answered_by_keyboard(screen, tray, agent, keys, state):
    identifier = agent.raise_request("cat /etc/passwd")
    Prompt(screen, tray).press(*keys)
    eventually(lambda: agent.state(identifier) == state, what=f"being {state}")
    eventually(lambda: not windows(tray), what="the window's end")


@pytest.mark.parametrize("typed", ["ALWAYS ALLOW", "  ALWAYS ALLOW "])
def test_the_phrase_creates_an_exception_that_the_menu_revokes(screen, watcher, world, start_tray,
                                                              typed):
    world.use_sandbox_agent()
    tray = start_tray("--desktop")
    item = watcher.item()
    eventually(lambda: reachable(world))
    agent = Agent(world.agent_port)
    agent.raise_request("cat /etc/passwd")
    prompt = Prompt(screen, tray)
    prompt.press("Tab", "Tab", "space")
    confirmation = Prompt(screen, tray, [prompt.pid], requested=True)
    screen.type(typed)
    confirmation.press("Tab", "Tab", "space")
    eventually(lambda: agent.grants() == ["cat /etc/passwd"], what="an exception")
    eventually(lambda: "⚠️ Permanent exceptions (1)" in outline(item.layout()))
    item.event(item.find("Revoke"), "clicked")
    eventually(lambda: agent.grants() == [], what="no exception")


def test_a_wrong_phrase_denies_with_a_warning(screen, tray, agent):
    identifier = agent.raise_request("cat /etc/passwd")
    prompt = Prompt(screen, tray)
    prompt.press("Tab", "Tab", "space")
    confirmation = Prompt(screen, tray, [prompt.pid], requested=True)
    screen.type("always allow")
    confirmation.press("Tab", "Tab", "space")
    refusal = Prompt(screen, tray, [prompt.pid, confirmation.pid], requested=True)
    assert agent.state(identifier) == "pending"
    refusal.press("Return")
    eventually(lambda: agent.state(identifier) == "denied")
    assert agent.grants() == []


def test_two_requests_are_prompted_one_after_the_other(screen, tray, agent):
    first, second = agent.raise_request("cat /etc/one"), agent.raise_request("cat /etc/two")
    prompt = Prompt(screen, tray)
    assert len(windows(tray)) == 1
    prompt.press("Return")
    other = Prompt(screen, tray, [prompt.pid])
    assert (agent.state(first), agent.state(second)) == ("denied", "pending")
    other.press("Tab", "space")
    eventually(lambda: agent.state(second) == "approved")


def test_a_withdrawn_request_closes_its_window(screen, tray, agent):
    identifier = agent.raise_request("cat /etc/passwd")
    prompt = Prompt(screen, tray)
    agent.call("DELETE", f"/sandbox/requests/{identifier}")
    eventually(lambda: not windows(tray), what="the window's end")
    again = agent.raise_request("cat /etc/passwd")
    Prompt(screen, tray, [prompt.pid]).press("Return")
    eventually(lambda: agent.state(again) == "denied")


# A program that fails

def test_a_window_that_dies_after_it_was_shown_denies(screen, tray, agent):
    identifier = agent.raise_request("cat /etc/passwd")
    os.kill(Prompt(screen, tray).pid, signal.SIGKILL)
    eventually(lambda: agent.state(identifier) == "denied")


@pytest.mark.parametrize("broken", [None, "exit 1", "echo nonsense; exec sleep 100", "exec sleep 100"],
                         ids=["missing", "crashing", "garbled", "silent"])
def test_a_request_without_a_window_is_not_denied_and_waits_in_the_menu(screen, watcher, world, start_tray,
                                                               broken):
    world.use_sandbox_agent()
    whole = world.root / "whole"
    world.dialogs.rename(whole)
    if broken:
        world.dialogs.write_text(f"#!/bin/sh\n{broken}\n")
        world.dialogs.chmod(0o755)
    tray = start_tray("--desktop")
    item = watcher.item()
    eventually(lambda: reachable(world))
    agent = Agent(world.agent_port)
    identifier = agent.raise_request("cat /etc/passwd")
    tray.log_line("the request waits in the menu", 15)
    assert agent.state(identifier) == "pending"
    world.dialogs.unlink(missing_ok=True)
    whole.rename(world.dialogs)
    eventually(lambda: "⚠️ 1 request needs your approval…" in outline(item.layout()))
    item.event(item.find("⚠️ 1 request needs your approval…"), "clicked")
    Prompt(screen, tray, requested=True).press("Return")
    eventually(lambda: agent.state(identifier) == "denied")


def test_a_notification_opens_its_request_and_is_withdrawn_with_it(screen, world, start_tray):
    server = NotificationServer(screen.bus.peer())
    world.use_sandbox_agent()
    whole = world.root / "whole"
    world.dialogs.rename(whole)
    tray = start_tray("--desktop")
    eventually(lambda: reachable(world))
    agent = Agent(world.agent_port)
    identifier = agent.raise_request("cat /etc/passwd")
    tray.log_line("the request waits in the menu", 15)
    whole.rename(world.dialogs)
    posted, = eventually(lambda: server.posted)
    assert posted["title"] == "Zephyl: approval needed"
    assert posted["body"].endswith(" wants run_command to reach outside the shared folder.")
    assert posted["actions"] == ["default", "Review…", "show", "Review…"]
    assert posted["hints"]["desktop-entry"] == "com.zephyl.tray"
    server.send_signal("ActivationToken", "(us)", posted["id"], "token-9")
    server.send_signal("ActionInvoked", "(us)", posted["id"], "show")
    prompt = Prompt(screen, tray, requested=True)
    environment = pathlib.Path(f"/proc/{prompt.pid}/environ").read_bytes().split(b"\0")
    assert b"XDG_ACTIVATION_TOKEN=token-9" in environment
    prompt.press("Return")
    eventually(lambda: agent.state(identifier) == "denied")
    eventually(lambda: server.closed == [posted["id"]])
    server.peer.release(NOTIFICATIONS)


# Other windows

@pytest.mark.parametrize("script, title", [
    ("#!/bin/sh\nseq 200\nexit 3\n", "Agent Exited Unexpectedly")])
def test_an_agent_that_fails_opens_a_window_with_its_log(screen, world, start_tray, script, title):
    world.use_agent_script(script)
    tray = start_tray("--desktop")
    prompt = Prompt(screen, tray)
    named = subprocess.run(["xdotool", "getwindowfocus", "getwindowname"], env=screen.environment,
                           capture_output=True, text=True).stdout.strip()
    assert named == title
    prompt.press("Return")
    eventually(lambda: not windows(tray), what="the window's end")
