"""Cinnamon with xapp-sn-watcher."""

NAME = "X-Cinnamon"
PROGRAM = "cinnamon"
PACKAGES = ["cinnamon", "xapp-sn-watcher"]
SETTLING = 6
PANEL = (640, 755, 560, 45)  # without the clock
BUTTON = 1
UNSUPPORTED = {"folder count": "the panel shows no text beside an item"}


def start(session):
    session.set("org.cinnamon.desktop.interface", "gtk-theme",
                "'Adwaita-dark'" if session.dark else "'Adwaita'")


def start_shell(session):
    session.start("shell", "sh", "-c", "(sleep 6; exec /usr/libexec/xapps/sn-watcher/xapp-sn-watcher)"
                  " & exec cinnamon --replace")
