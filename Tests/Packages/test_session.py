"""The installed packages in a session: start from the desktop entry and by the bus, and an upgrade.

Installs packages, so it needs a disposable system (see `check`)."""

import os
import pathlib

import pytest

from session import PROGRAM, install
from support.tray import command_line, eventually, is_alive


def test_an_upgrade_keeps_data_and_asks_for_a_restart(packages, session):
    if not (packages / "previous").is_dir():
        pytest.skip("there are no packages to upgrade from")
    install(packages / "previous")
    data = session.join_servers()
    old = session.start_from_entry()
    install(packages / "current")
    session.wait_for_line("zephyl-tray was updated; quit it and start it again")
    assert is_alive(old), "an upgrade ends no tray"
    assert session.data() == data
    session.end()
    assert session.start_from_entry() != old
    assert session.data() == data


def test_the_desktop_entry_starts_it_in_the_panel(packages, session):
    install(packages / "current")
    pid = session.start_from_entry()
    assert len(command_line(pid).split()) == 1, "the entry has no arguments"
    assert os.readlink(f"/proc/{pid}/exe") == PROGRAM


def test_the_bus_starts_it(packages, session):
    install(packages / "current")
    assert command_line(session.start_by_bus()).split() == [PROGRAM, "--desktop"]


def test_its_windows_are_found(packages, session):
    """Waits for the window that reports the missing agent."""
    install(packages / "current")
    pid = session.start_from_entry()
    eventually(lambda: any("zephyl-tray-dialogs" in command_line(int(entry.name))
                           for entry in pathlib.Path("/proc").iterdir() if entry.name.isdigit()),
               20, "a window")
    assert is_alive(pid)
