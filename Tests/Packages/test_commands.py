"""The installed commands, with and without a tray in a session."""

import json
import pathlib
import shutil
import subprocess

import pytest

from session import install
from support.desktop_services import NotificationServer
from support.scripted_agent import ScriptedAgent
from support.tray import eventually


AGENTS = pathlib.Path("/usr/share/zephyl-tray/agent")


@pytest.fixture
def agent(session, run):
    """An installed agent that is already running."""
    AGENTS.mkdir()
    (AGENTS / "zephyl-agent").write_text("#!/bin/sh\nexec sleep 1000\n")
    (AGENTS / "zephyl-agent").chmod(0o755)
    agent = ScriptedAgent(int(session.desktop.environment["AGENT_TRAY_PORT"]))
    yield agent
    agent.close()
    shutil.rmtree(AGENTS)


@pytest.fixture
def run(packages, session):
    install(packages / "current")

    def run(*arguments):
        return subprocess.run(["zephyl-tray", *arguments], env=session.desktop.environment,
                              stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=30)

    return run


def test_without_a_tray_they_fail_with_a_message(run):
    answer = run("status")
    assert answer.returncode == 3, answer


def test_an_installed_tray_without_an_agent_gives_advice(session, run):
    session.start_from_entry()
    answer = eventually(lambda: next((each for each in [run("status")] if "agent" in each.stdout), None),
                        what="a state with the agent")
    assert answer.returncode == 1, answer


def test_the_doctor_finds_nothing_wrong(session, agent, run):
    NotificationServer(session.peer)
    session.start_from_entry()
    eventually(lambda: agent.count("/api/activity") > 0, what="a poll of the agent")
    answer = run("doctor")
    assert "wrong" not in [line.split()[0] for line in answer.stdout.splitlines()], answer.stdout
    assert answer.returncode == 0, answer
    json.loads(run("doctor", "--json").stdout)
