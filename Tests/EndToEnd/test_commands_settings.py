"""The commands that need no running tray: defaults, autostart and doctor."""

import json
import os
import signal
import socket
import stat

import pytest

from support.commands import Commands
from support.other_user import ForeignAgent, skip_unless_root
from support.session_bus import Watcher

# Has one unit, whose state is in a file. Without that file the unit does not exist.
SYSTEMCTL = """#!/bin/sh
state="$HOME/unit"
echo "$*" >>"$HOME/systemctl.log"
case "$2" in
  is-enabled) [ -e "$state" ] && cat "$state" || { echo "Failed to connect to bus" >&2; exit 1; } ;;
  is-active) echo "${SESSION_TARGET:-inactive}" ;;
  enable) echo enabled >"$state" ;;
  disable) echo disabled >"$state" ;;
esac
"""


@pytest.fixture
def commands(world):
    return Commands(world)


@pytest.fixture
def settings(world):
    return world.home / ".config" / "com.zephyl.tray" / "defaults.json"


@pytest.fixture
def unit(world):
    """The file with the state of the systemd unit. It does not exist at first."""
    tools = world.root / "tools"
    tools.mkdir()
    (tools / "systemctl").write_text(SYSTEMCTL)
    (tools / "systemctl").chmod(0o755)
    world.environment["PATH"] = f"{tools}:{world.environment['PATH']}"
    return world.home / "unit"


@pytest.fixture
def entry(world):
    return world.home / ".config" / "autostart" / "com.zephyl.tray.desktop"


def findings(commands, **environment):
    answer = commands.run("doctor", "--json", **environment)
    found = {}
    for finding in json.loads(answer.stdout):
        found.setdefault(finding["check"], finding)
    wrong = any(finding["state"] == "wrong" for finding in json.loads(answer.stdout))
    assert answer.returncode == (1 if wrong else 0)
    return found


def test_settings_keep_their_types(settings, commands):
    assert commands.run("defaults", "read").stdout == "{}\n"
    assert commands.run("defaults", "write", "trayPort", "9001").returncode == 0
    assert commands.run("defaults", "write", "repoRoot", "/src").returncode == 0
    assert commands.run("defaults", "write", "--string", "version", "7").returncode == 0
    assert commands.run("defaults", "write", "version", "8").returncode == 0
    assert json.loads(settings.read_text()) == {"trayPort": 9001, "repoRoot": "/src", "version": "8"}
    assert stat.S_IMODE(settings.stat().st_mode) == 0o600
    assert commands.run("defaults", "read", "trayPort").stdout == "9001\n"
    assert commands.run("defaults", "read", "version").stdout == "8\n"
    assert commands.run("defaults", "read", "version", "--json").stdout == '"8"\n'
    assert json.loads(commands.run("defaults", "read").stdout)["trayPort"] == 9001


def test_settings_refuse_values_of_another_type(settings, commands):
    commands.run("defaults", "write", "trayPort", "9001")
    for arguments in (["trayPort", "many"], ["--integer", "other", "many"]):
        answer = commands.run("defaults", "write", *arguments)
        assert answer.returncode == 1 and "integer" in answer.stderr
    assert json.loads(settings.read_text()) == {"trayPort": 9001}
    assert commands.run("defaults", "write", "--string", "trayPort", "many").returncode == 0
    assert commands.run("defaults", "delete", "trayPort").returncode == 0
    assert json.loads(settings.read_text()) == {}
    for verb in ("read", "delete"):
        assert commands.run("defaults", verb, "trayPort").returncode == 1


def test_unreadable_settings_are_kept(settings, commands):
    settings.parent.mkdir(parents=True)
    settings.write_text("{")
    assert commands.run("defaults", "read").returncode == 1
    assert commands.run("defaults", "write", "a", "b").returncode == 1
    assert settings.read_text() == "{"


def test_autostart_uses_an_entry_without_systemd(world, unit, entry, commands):
    assert commands.run("autostart", "status").returncode == 1
    assert commands.run("autostart", "on").returncode == 0
    text = entry.read_text()
    assert f'Exec="{world.prefix}/bin/zephyl-tray"' in text
    assert "Hidden" not in text and "Name=Zephyl" in text
    assert commands.run("autostart", "status").stdout == f"on ({entry})\n"
    assert commands.run("autostart", "off").returncode == 0
    assert not entry.exists()
    assert commands.run("autostart", "status").stdout == "off\n"


def test_autostart_uses_the_unit_where_systemd_runs_the_session(unit, entry, commands):
    commands.run("autostart", "on")
    assert entry.exists()
    unit.write_text("disabled\n")
    assert commands.run("autostart", "on").returncode == 0
    assert unit.read_text() == "enabled\n"
    assert not entry.exists()
    assert commands.run("autostart", "status").returncode == 0
    assert commands.run("autostart", "off").returncode == 0
    assert unit.read_text() == "disabled\n"


def test_autostart_uses_the_entry_where_the_unit_would_never_start(unit, entry, commands):
    unit.write_text("enabled\n")
    desktop = {"DISPLAY": ":7"}
    assert commands.run("autostart", "on", **desktop).returncode == 0
    assert entry.exists() and unit.read_text() == "disabled\n"
    assert commands.run("autostart", "on", SESSION_TARGET="active", **desktop).returncode == 0
    assert not entry.exists() and unit.read_text() == "enabled\n"


def test_doctor_finds_nothing_wrong_with_a_headless_server(world, commands):
    world.use_sandbox_agent()
    found = findings(commands)
    assert {name for name, finding in found.items() if finding["state"] == "wrong"} == set()
    assert found["session bus"]["state"] == "note"
    assert not world.base.exists()


def test_doctor_reports_missing_parts(world, settings, commands):
    found = findings(commands, DISPLAY=":7")
    assert str(world.agent_program) in found["agent"]["advice"]
    assert found["session bus"]["state"] == "wrong"
    assert "zephyl-tray-desktop" in found["dialogs"]["advice"]
    settings.parent.mkdir(parents=True)
    settings.write_text('{"trayPort": "x"}')
    world.base.mkdir(parents=True)
    (world.base / "servers.json").write_text('[{"id": 7}]')
    (world.resources / "Info.json").unlink()
    found = findings(commands)
    for check in ("settings", "registry", "installation"):
        assert found[check]["state"] == "wrong", found[check]


def test_doctor_includes_the_running_tray(world, start_tray, commands):
    world.use_sandbox_agent()
    tray = start_tray()
    tray.log_line("reachable, 1 folder")
    found = findings(commands)
    assert f"process {tray.pid}" in found["tray"]["message"]
    assert all(finding["state"] != "wrong" for finding in found.values()), found
    tray.send(signal.SIGSTOP)
    try:
        found = findings(commands)
        assert (found["tray"]["state"], "does not answer" in found["tray"]["message"]) == ("wrong", True)
    finally:
        tray.send(signal.SIGCONT)


def test_doctor_names_a_port_in_use(world, commands):
    world.use_sandbox_agent()
    with socket.socket() as other:
        other.bind(("127.0.0.1", world.control_port))
        other.listen()
        found = findings(commands)
    assert found["control port"]["state"] == "wrong"
    assert "onboardingPort" in found["control port"]["advice"]
    assert found["agent port"]["state"] == "ok"


def test_doctor_names_the_user_who_has_a_port(world, commands):
    skip_unless_root()
    foreign = ForeignAgent(world.agent_port)
    try:
        found = findings(commands)
    finally:
        foreign.close()
    assert found["agent port"]["state"] == "wrong"
    assert "54321" in found["agent port"]["message"]


def test_doctor_checks_the_desktop(world, bus, commands):
    found = findings(commands, DISPLAY=":7")
    assert found["session bus"]["state"] == "ok"
    assert (found["tray host"]["state"], "AppIndicator" in found["tray host"]["advice"]) == ("wrong", True)
    Watcher(bus.peer())
    assert findings(commands, DISPLAY=":7")["tray host"]["state"] == "ok"


def test_private_files_do_not_depend_on_the_umask(world, start_tray, commands):
    old = os.umask(0)
    try:
        world.use_sandbox_agent()
        start_tray().log_line("reachable, 1 folder")
        assert stat.S_IMODE((world.base / "tray.sock").stat().st_mode) == 0o600
        commands.run("defaults", "write", "a", "1")
        settings = world.home / ".config" / "com.zephyl.tray" / "defaults.json"
        assert stat.S_IMODE(settings.stat().st_mode) == 0o600
    finally:
        os.umask(old)
