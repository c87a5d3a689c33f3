"""Budgie: openbox and budgie-panel with the AppIndicator Applet."""

import time

from support.tray import eventually

NAME = "Budgie:GNOME"
PROGRAM = "budgie-panel"
PACKAGES = ["budgie-core", "budgie-indicator-applet", "ayatana-indicator-application", "openbox"]
SETTLING = 8
PANEL = (640, 755, 560, 45)  # without the clock
BUTTON = 1
OPENS_SILENTLY = True
UNSUPPORTED = {"tool tip": "the applet shows no tool tips"}

SERVICE = "/usr/libexec/ayatana-indicator-application/ayatana-indicator-application-service"


def start(session):
    session.set("com.solus-project.budgie-panel", "dark-theme", str(session.dark).lower())
    session.start("indicators", SERVICE)
    session.start("daemon", "budgie-daemon")
    session.start("wm", "openbox")
    time.sleep(1)
    start_shell(session)  # writes its default panel, whose system tray shows only XEmbed icons
    settings = session.home / ".config/glib-2.0/settings/keyfile"
    eventually(lambda: settings.exists() and "'System Tray'" in settings.read_text()
               and "'Raven Trigger'" in settings.read_text(), 60, "a default panel")
    time.sleep(4)  # the panel continues to write its settings
    session.kill("shell")
    settings.write_text(settings.read_text().replace("'System Tray'", "'AppIndicator Applet'"))


def start_shell(session):
    session.start("shell", "budgie-panel")
