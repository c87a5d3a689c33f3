"""MATE: marco, mate-panel, mate-settings-daemon, mate-notification-daemon."""

import time

NAME = "MATE"
PROGRAM = "mate-panel"
PACKAGES = ["mate-panel", "marco", "mate-settings-daemon", "mate-notification-daemon"]
SETTLING = 4
NOTIFIER = "/usr/lib/mate-notification-daemon/mate-notification-daemon"
PANEL = (900, 0, 240, 28)  # without the clock
BUTTON = 3  # a left click activates the item, which opens the desktop window
CANNOT = {}


def start(session):
    session.set("org.mate.interface", "gtk-theme",
                "'Adwaita-dark'" if session.dark else "'Adwaita'")
    session.start("settings", "mate-settings-daemon")  # without it items are one pixel small
    time.sleep(2)
    session.start("wm", "marco")


def start_shell(session):
    session.start("shell", "mate-panel")
