"""The tray checks the owner of a loopback port, and trusts no port by its number alone."""

import os
import socket
import subprocess

import pytest

from support.agent_sockets import listener
from support.control_api import start_api, window  # noqa: F401
from support.other_user import USER, ForeignAgent, as_other_user, skip_unless_root
from support.scripted_agent import ScriptedAgent
from support.tray import eventually

COMPLAINT = "belongs to a program of another user"


def accepts(port):
    with socket.socket() as sock:
        return sock.connect_ex(("127.0.0.1", port)) == 0


def complaints(tray):
    return [line for line in tray.lines if COMPLAINT in line]


@pytest.fixture(name="unstoppable")
def fixture_unstoppable(world):
    """Prevents the tray from killing the listener on the agent's port. These tests run as root, but a
    tray of another user could not kill it."""
    programs = world.root / "bin"
    programs.mkdir()
    (programs / "lsof").write_text("#!/bin/sh\n")
    (programs / "lsof").chmod(0o755)
    world.environment["PATH"] = f"{programs}:{world.environment['PATH']}"


# The control port


def test_a_window_gets_neither_token_nor_port_if_another_program_has_the_port(world, window, start_tray):
    with listener(world.control_port) as squatter:
        tray = start_tray()
        environment = window.environment()
        assert not {"ZEPHYL_ONBOARD_TOKEN", "ZEPHYL_ONBOARD_PORT"} & set(environment), environment
        assert environment["ZEPHYL_ONBOARD"] == "1", "the other variables are set"
        tray.log_line("starting the desktop app without the control API")
        assert len([line for line in tray.lines if "without the control API" in line]) == 1
        tray.log_line("could not start the onboarding listener")
        squatter.settimeout(0)
        with pytest.raises(BlockingIOError):
            squatter.accept()
        assert tray.stop() == 0


# The agent's port


@pytest.mark.usefixtures("unstoppable")
def test_an_agent_of_another_user_does_not_count(world, start_api):
    skip_unless_root()
    world.use_agent_script("#!/bin/sh\nexec sleep 1000\n")
    foreign = ForeignAgent(world.agent_port)
    try:
        api = start_api()
        api.tray.log_line(COMPLAINT)
        assert api.get("/diagnostics")["agent"]["reachable"] is False
        assert api.ask("GET", "/roots")[0] == 502
        reason = api.refusal("POST", "/servers/none/roots/scope", {"root": "/secret", "shared": True})
        assert reason == f"port {world.agent_port} belongs to another user's program"
        assert complaints(api.tray) == [
            f"[tray] port {world.agent_port} belongs to a program of another user (user id {USER}), which "
            "is not accepted as the agent; end that program or set another \"trayPort\""]
    finally:
        requests = foreign.close()
    assert requests == [], "nothing is sent to it"
    own = ScriptedAgent(world.agent_port)
    try:
        eventually(lambda: api.get("/diagnostics")["agent"]["reachable"], what="the user's own agent")
    finally:
        own.close()


@pytest.mark.usefixtures("unstoppable")
def test_a_port_that_changes_hands_is_noticed(world, start_api):
    skip_unless_root()
    own = ScriptedAgent(world.agent_port)
    try:
        api = start_api()
        eventually(lambda: api.get("/diagnostics")["agent"]["reachable"], what="the user's own agent")
    finally:
        own.close()
    foreign = ForeignAgent(world.agent_port)
    try:
        eventually(lambda: not api.get("/diagnostics")["agent"]["reachable"], what="the end of the agent")
        api.tray.log_line(COMPLAINT)
        assert len(complaints(api.tray)) == 1
    finally:
        foreign.close()


@pytest.mark.usefixtures("unstoppable")
def test_an_agent_of_root_is_used_by_another_users_tray(world):
    skip_unless_root()
    own = ScriptedAgent(world.agent_port)  # of root, like the test
    tray = start_without_home(world, base_owner=USER)
    try:
        eventually(lambda: own.count("/api/activity") > 1, what="polls")
    finally:
        tray.terminate()
        _, log = tray.communicate(timeout=20)
        own.close()
    assert COMPLAINT not in log


# The base directory


def start_without_home(world, base_owner):
    """Starts the tray for a user without a home, with an existing base directory."""
    temporary = world.root / "tmp"
    temporary.mkdir()
    temporary.chmod(0o1777)
    (temporary / "Zephyl").mkdir(mode=0o700)
    os.chown(temporary / "Zephyl", base_owner, base_owner)
    for directory in (world.root, world.prefix):
        directory.chmod(0o755)
    environment = {name: value for name, value in world.environment.items() if name != "HOME"}
    environment["TMPDIR"] = str(temporary)
    return subprocess.Popen(as_other_user(world.prefix / "bin/zephyl-tray", "--headless"), env=environment,
                            cwd="/", stdin=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)


def test_without_a_home_a_base_directory_of_another_user_is_refused(world):
    skip_unless_root()
    tray = start_without_home(world, base_owner=USER + 1)
    _, log = tray.communicate(timeout=20)
    assert tray.returncode == 1
    assert log == (f"[tray] could not start: {world.root}/tmp/Zephyl belongs to another user (user id {USER + 1}); "
                   "set HOME or XDG_DATA_HOME to a directory of your own\n")


def test_without_a_home_a_base_directory_of_the_user_is_used(world):
    skip_unless_root()
    tray = start_without_home(world, base_owner=USER)
    try:
        eventually(lambda: accepts(world.control_port), what="a tray that has started")
        assert (world.root / "tmp/Zephyl/tray.lock").exists()
    finally:
        tray.terminate()
        _, log = tray.communicate(timeout=20)
    assert tray.returncode == 0, log
