"""A tray whose package is upgraded while it runs asks for a restart."""

import shutil

import pytest

from support.desktop_services import NotificationServer
from support.session_bus import Watcher
from support.tray import eventually

LINE = "zephyl-tray was updated; quit it and start it again to use the new version"


@pytest.fixture
def program(world):
    return world.prefix / "bin" / "zephyl-tray"


def replace(program):
    """Replaces the file of the program, like a package manager."""
    new = program.with_name("zephyl-tray.dpkg-new")
    shutil.copy2(program, new)
    new.rename(program)


def until_polls(agent, count):
    """Waits for further polls of the agent, each of which checks the program."""
    before = agent.count("/api/status")
    eventually(lambda: agent.count("/api/status") >= before + count, 20, "polls of the agent")


def test_the_user_is_notified_once(start_tray, bus, program, scripted_agent):
    watcher = Watcher(bus.peer())
    notifications = NotificationServer(bus.peer())
    tray = start_tray("--desktop")
    watcher.item()
    until_polls(scripted_agent, 2)
    assert not any(LINE in line for line in tray.lines)
    replace(program)
    tray.log_line(LINE)
    eventually(lambda: notifications.posted, what="a notification")
    replace(program)
    until_polls(scripted_agent, 3)
    assert [each["title"] for each in notifications.posted] == ["Zephyl was updated"]
    assert "quit Zephyl in its menu and start it again" in notifications.posted[0]["body"]
    assert sum(LINE in line for line in tray.lines) == 1
    assert tray.stop() == 0


def test_a_removed_program_does_not_count_as_updated(start_tray, program, scripted_agent):
    tray = start_tray()
    until_polls(scripted_agent, 1)
    program.unlink()
    until_polls(scripted_agent, 4)
    assert not any("was updated" in line for line in tray.lines)
    assert tray.stop() == 0
