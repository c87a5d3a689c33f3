"""KDE Plasma on X11."""

import shutil
import time

NAME = "KDE"
PROGRAM = "plasmashell"
PACKAGES = ["plasma-workspace", "plasma-desktop", "kwin-x11", "kded5", "breeze",
            "breeze-icon-theme"]  # kded6 with Plasma 6
SETTLING = 12
PANEL = (900, 758, 240, 42)  # without the clock
BUTTON = 1
NOTIFICATION_ACTION = (0.87, 0.85)  # the button of the action
UNSUPPORTED = {"folder count": "the system tray shows no text beside an item"}


def start(session):
    configure(session)
    session.start("wm", "kwin_x11")
    time.sleep(2)
    start_daemon(session)


def configure(session):
    config = session.home / ".config"
    config.mkdir(exist_ok=True)
    scheme, theme = ("BreezeDark", "breeze-dark") if session.dark else ("BreezeLight", "breeze-light")
    (config / "kdeglobals").write_text(
        f"[General]\nColorScheme={scheme}\n[KDE]\nAnimationDurationFactor=0\n")
    (config / "plasmarc").write_text(f"[Theme]\nname={theme}\n")
    (config / "kwinrc").write_text("[Compositing]\nEnabled=false\n")
    version = "6" if shutil.which("kded6") else "5"
    session.environment.update(KDE_FULL_SESSION="true", KDE_SESSION_VERSION=version,
                               QT_SCREEN_SCALE_FACTORS=f"screen={session.scale:g};")


def start_daemon(session):
    session.start("daemon", "kded" + session.environment["KDE_SESSION_VERSION"])
    time.sleep(3)


def start_shell(session):
    session.start("shell", "plasmashell")
