"""LXQt: openbox, lxqt-panel, lxqt-notificationd."""

NAME = "LXQt"
PROGRAM = "lxqt-panel"
PACKAGES = ["lxqt-panel", "lxqt-notificationd", "openbox"]
SETTLING = 2
NOTIFIER = "/usr/bin/lxqt-notificationd"
PANEL = (640, 760, 640, 40)
BUTTON = 3  # a left click activates the item, which opens the desktop window
UNSUPPORTED = {"folder count": "the panel shows no text beside an item"}

PANEL_SETTINGS = """panels=panel1
[panel1]
plugins=mainmenu,taskbar,statusnotifier
position=Bottom
desktop=0
[mainmenu]
type=mainmenu
[taskbar]
type=taskbar
[statusnotifier]
type=statusnotifier
"""


def start(session):
    config = session.home / ".config/lxqt"
    config.mkdir(parents=True)
    theme = "dark" if session.dark else "light"
    (config / "lxqt.conf").write_text(f"theme={theme}\nicon_theme=Adwaita\n")
    (config / "panel.conf").write_text(PANEL_SETTINGS)
    session.start("wm", "openbox")


def start_shell(session):
    session.start("shell", "lxqt-panel")
