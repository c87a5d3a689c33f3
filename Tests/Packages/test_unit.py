"""The installed unit, run by a private systemd."""

import os
import pathlib
import signal
import subprocess

import pytest

from session import NAME, install
from support.tray import eventually, is_alive

SYSTEMD = "/lib/systemd/systemd"

# A session manager starts such a target. graphical-session.target refuses a manual start.
SESSION_TARGET = """[Unit]
BindsTo=graphical-session.target
Before=graphical-session.target
"""

QUICK_WATCHDOG = """[Service]
WatchdogSec=2
"""


class UserManager:
    """The systemd of a session."""

    def __init__(self, session):
        self.environment = session.desktop.environment
        self.units = pathlib.Path(self.environment["XDG_CONFIG_HOME"]) / "systemd" / "user"
        (self.units / "zephyl-tray.service.d").mkdir(parents=True)
        (self.units / "test-session.target").write_text(SESSION_TARGET)
        (self.units / "zephyl-tray.service.d" / "watchdog.conf").write_text(QUICK_WATCHDOG)
        (self.units / "dbus.socket").symlink_to("/dev/null")  # the test has a bus
        pathlib.Path("/run/systemd/system").mkdir(parents=True, exist_ok=True)
        with open(session.log, "ab") as log:
            self.process = subprocess.Popen([SYSTEMD, "--user", "--log-target=console", "--unit=basic.target"],
                                            env=self.environment, stdin=subprocess.DEVNULL, stdout=log, stderr=log)

    def is_running(self):
        return self.call("is-system-running", check=False) in ("running", "degraded")

    def call(self, *arguments, check=True):
        return subprocess.run(["systemctl", "--user", *arguments], env=self.environment, check=check,
                              capture_output=True, text=True).stdout.strip()

    def value(self, name):
        return self.call("show", "zephyl-tray", "--property", name, "--value")

    def close(self):
        self.call("exit", check=False)
        try:
            self.process.wait(20)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()


@pytest.fixture
def manager(packages, session):
    install(packages / "current")
    manager = UserManager(session)
    try:
        eventually(manager.is_running, 20)
    except AssertionError:
        manager.close()
        pytest.skip("systemd cannot manage a session here")
    yield manager
    manager.close()


def test_the_unit_runs_the_tray_with_the_session(session, manager):
    manager.call("start", "test-session.target")
    assert session.owner(NAME) is None, "the unit is off after the installation"
    manager.call("stop", "test-session.target")

    manager.call("enable", "zephyl-tray")
    manager.call("start", "test-session.target")
    eventually(session.has_item, 20, "an item in the panel")
    pid = session.owner(NAME)
    assert manager.value("MainPID") == str(pid)
    eventually(lambda: manager.value("ActiveState") == "active", what="a unit that is ready")
    manager.call("stop", "test-session.target")
    eventually(lambda: not is_alive(pid), 20, "the end of the tray")
    eventually(lambda: manager.value("ActiveState") == "inactive", what="a unit that has ended")
    assert manager.value("Result") == "success"


@pytest.mark.parametrize("number", [signal.SIGKILL, signal.SIGSTOP], ids=["killed", "hangs"])
def test_a_tray_that_fails_is_restarted(session, manager, number):
    manager.call("start", "zephyl-tray")
    pid = eventually(lambda: session.owner(NAME), what="the tray's name")
    os.kill(pid, number)
    eventually(lambda: manager.value("NRestarts") == "1", 20, "a restart")
    eventually(lambda: session.owner(NAME) not in (None, pid), 20, "another tray")
    eventually(session.has_item, 20, "an item in the panel")
    assert not is_alive(pid)
    manager.call("stop", "zephyl-tray")
    assert manager.value("Result") == "success"
