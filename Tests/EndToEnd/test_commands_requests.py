"""Listing and deciding requests by commands."""

import pytest

from support.approvals import (  # noqa: F401 (fixtures)
    Agent, Prompt, agent, reachable, tray, windows, world)
from support.commands import Commands
from support.tray import eventually


@pytest.fixture
def commands(world):  # noqa: F811
    return Commands(world)


@pytest.fixture
def headless_agent(world, start_tray):  # noqa: F811
    """The agent of a headless tray without a session bus."""
    del world.environment["DBUS_SESSION_BUS_ADDRESS"]
    world.use_sandbox_agent()
    start_tray("--headless").log_line("reachable, 1 folder")
    return Agent(world.agent_port)


def listed(commands, identifier):
    return eventually(lambda: next((line for line in commands.run("requests").stdout.splitlines()
                                    if line.startswith(identifier + " ")), None), what="a request")


def test_a_request_is_listed_in_full_and_decided(headless_agent, commands):
    identifier = headless_agent.raise_request('cat "/etc/passwd" \u202e  # fine')
    line = listed(commands, identifier)
    assert 'command="cat \\"/etc/passwd\\" \\\\u202e  # fine"' in line
    assert 'why="' in line and 'by="' in line
    assert commands.attention() == ["requestsWaiting"]
    assert commands.run("status").returncode == 1
    answer = commands.run("answer", identifier, "once")
    assert (answer.returncode, answer.stdout) == (0, "Allowed once.\n")
    assert headless_agent.state(identifier) == "approved"
    eventually(lambda: commands.attention() == [])
    other = headless_agent.raise_request("cat /etc/hosts")
    listed(commands, other)
    assert commands.run("answer", other, "deny").returncode == 0
    assert headless_agent.state(other) == "denied"
    again = commands.run("answer", other, "deny")  # refused by the tray or, just before, by the agent
    assert again.returncode == 1 and "request" in again.stderr


def test_a_permanent_exception_requires_the_phrase_on_a_terminal(headless_agent, commands):
    identifier = headless_agent.raise_request("cat /etc/hosts")
    listed(commands, identifier)
    piped = commands.run("answer", identifier, "always", text="ALWAYS ALLOW\n")
    assert piped.returncode == 1 and "terminal" in piped.stderr
    status, shown = commands.type("answer", identifier, "always",
                                  answers=[("to confirm:", "always allow\n")])
    assert status == 1
    assert "cat /etc/hosts" in shown and "No permanent exception was created" in shown
    assert headless_agent.state(identifier) == "pending"
    assert headless_agent.grants() == []
    status, shown = commands.type("answer", identifier, "always",
                                  answers=[("to confirm:", "ALWAYS ALLOW\n")])
    assert status == 0 and "Allowed permanently." in shown
    assert headless_agent.grants() == ["cat /etc/hosts"]


def test_the_prompt_closes_when_its_request_is_decided_by_a_command(
        screen, tray, agent, commands):  # noqa: F811
    identifier = agent.raise_request("cat /etc/passwd")
    eventually(lambda: windows(tray), what="a window")
    assert commands.run("answer", identifier, "once").returncode == 0
    eventually(lambda: not windows(tray), what="the window's end")
    assert agent.state(identifier) == "approved"
    other = agent.raise_request("cat /etc/hosts")
    Prompt(screen, tray).press("Return")
    eventually(lambda: agent.state(other) == "denied")


def test_status_shows_whether_a_panel_has_the_icon(world, tray, commands):  # noqa: F811
    eventually(lambda: commands.attention() == ["noTrayHost"])
    answer = commands.run("status")
    assert answer.returncode == 1 and "AppIndicator" in answer.stdout
