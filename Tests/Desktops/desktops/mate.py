"""MATE: marco, mate-panel, mate-settings-daemon, mate-notification-daemon."""

import shutil
import time


def installed(*programs):
    """Returns the first program that is installed, else the last one. Paths depend on the version."""
    return next((each for each in programs if shutil.which(each)), programs[-1])


NAME = "MATE"
PROGRAM = "mate-panel"
PACKAGES = ["mate-panel", "marco", "mate-settings-daemon", "mate-notification-daemon"]
SETTLING = 4
NOTIFIER = installed("/usr/libexec/mate-notification-daemon/mate-notification-daemon",
                     "/usr/lib/mate-notification-daemon/mate-notification-daemon")
PANEL = (900, 0, 240, 28)  # without the clock
BUTTON = 3  # a left click activates the item, which opens the desktop window
UNSUPPORTED = {}


def start(session):
    session.set("org.mate.interface", "gtk-theme",
                "'Adwaita-dark'" if session.dark else "'Adwaita'")
    # Without the settings daemon the items are only one pixel in size.
    session.start("settings", installed("/usr/libexec/mate-settings-daemon", "mate-settings-daemon"))
    time.sleep(2)
    session.start("wm", "marco")


def start_shell(session):
    session.start("shell", "mate-panel")
