"""GNOME on X11 with the AppIndicator extension."""

import re
import shutil
import subprocess


def version():
    """Returns the number of the installed release, 0 if there is none."""
    if shutil.which("gnome-shell") is None:
        return 0
    shown = subprocess.run(["gnome-shell", "--version"], capture_output=True, text=True, check=True)
    return int(re.search(r"\d+", shown.stdout).group())


NAME = "GNOME"
PROGRAM = "gnome-shell"
PACKAGES = ["gnome-shell", "gnome-shell-extension-appindicator", "gjs",
            "fonts-noto-color-emoji"]
SETTLING = 6
PANEL = (1000, 0, 280, 36)
BUTTON = 1
UNSUPPORTED = {"tool tip": "the extension shows no tool tips"}
READS_WHEN_OPENED = version() >= 45

EXTENSIONS = "['ubuntu-appindicators@ubuntu.com', 'appindicatorsupport@rgcjonas.gmail.com']"


def start(session):
    configure(session)


def configure(session):
    skip_warning(session)
    session.set("org.gnome.shell", "disable-user-extensions", "false")
    session.set("org.gnome.shell", "enabled-extensions", EXTENSIONS)
    session.set("org.gnome.shell", "welcome-dialog-last-shown-version", "'99'")
    session.set("org.gnome.desktop.interface", "enable-animations", "false")
    session.set("org.gnome.desktop.interface", "color-scheme",
                "'prefer-dark'" if session.dark else "'default'")
    session.set("org.gnome.desktop.interface", "scaling-factor", str(int(session.scale)))
    session.set("org.gnome.desktop.session", "idle-delay", "0")


def skip_warning(session):
    """Prevents a notification about the missing display manager, which delays those of the tray."""
    shown = session.home / ".local/share/gnome-shell/lock-warning-shown"
    shown.parent.mkdir(parents=True)
    shown.touch()


def start_shell(session):
    session.start("shell", "gnome-shell", "--x11")


def after_shell(session):
    session.screen.press("Escape", delay=2)  # closes the overview that is open at the start
