"""KDE Plasma on Wayland, nested in the X screen."""

import shutil
import time

from desktops import plasma
from desktops.plasma import (BUTTON, NAME, NOTIFICATION_ACTION, PANEL, SETTLING,  # noqa: F401
                             UNSUPPORTED, configure, start_daemon)
from lab.screen import HEIGHT, WIDTH

PROGRAM = "kwin_wayland"
PACKAGES = [*plasma.PACKAGES, "kwin-wayland", "qtwayland5"]  # qtwayland5 only with Plasma 5
WAYLAND = True
SOCKET = "wayland-5"


def start(session):
    configure(session)
    session.environment.update(XDG_SESSION_TYPE="wayland")
    # A copy, because the original has a file capability and does not start in a container that
    # cannot grant it.
    compositor = shutil.copy(shutil.which(PROGRAM), session.root / "kwin_wayland")
    session.start("wm", compositor, "--x11-display", session.environment["DISPLAY"],
                  "--width", str(WIDTH), "--height", str(HEIGHT), "--scale", f"{session.scale:g}",
                  "--socket", SOCKET, "--no-lockscreen")
    time.sleep(4)
    session.environment["WAYLAND_DISPLAY"] = SOCKET
    start_daemon(session)


def start_shell(session):
    session.start("shell", "plasmashell", QT_QPA_PLATFORM="wayland")
