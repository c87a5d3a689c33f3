"""GNOME on Wayland with the AppIndicator extension, nested in the X screen."""

from desktops.gnome import (BUTTON, NAME, PACKAGES, PANEL, PROGRAM, READS_WHEN_OPENED,  # noqa: F401
                            SETTLING, UNSUPPORTED, after_shell, configure)
from lab.screen import HEIGHT, WIDTH

WAYLAND = True
SUPPORTS_MONITORS = True
SOCKET = "wayland-5"


def start(session):
    configure(session)
    size = f"{int(WIDTH * session.scale)}x{int(HEIGHT * session.scale)}"
    session.environment.update(XDG_SESSION_TYPE="wayland", MUTTER_DEBUG_DUMMY_MODE_SPECS=size,
                               MUTTER_DEBUG_NUM_DUMMY_MONITORS=str(session.monitors),
                               MUTTER_DEBUG_DUMMY_MONITOR_SCALES=f"{session.scale:g}")


def start_shell(session):
    session.environment.pop("WAYLAND_DISPLAY", None)
    session.start("shell", "gnome-shell", "--nested", "--no-x11", "--wayland-display", SOCKET)
    session.environment["WAYLAND_DISPLAY"] = SOCKET
