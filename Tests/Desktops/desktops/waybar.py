"""Waybar and mako on sway, nested in the X screen."""

import os
import subprocess
import time

from lab.screen import HEIGHT, WIDTH

NAME = "sway"
PROGRAM = "waybar"
PACKAGES = ["sway", "waybar", "mako-notifier", "foot"]
SETTLING = 2
NOTIFIER = "mako"
PANEL = (640, 0, 640, 30)
BUTTON = 1
WAYLAND = True
ROWS = {"request": 0.06, "server": 0.23, "page": 0.15}
UNSUPPORTED = {"folder count": "the bar shows no text beside an item"}

FILES = {
    "waybar/config": '{"modules-right":["tray"],"tray":{"show-passive-items":true}}',
    "sway/config": "output X11-1 resolution {width}x{height} scale {scale:g}\n"
                   "focus_on_window_activation smart\n"}


def start(session):
    for name, text in FILES.items():
        path = session.home / ".config" / name
        path.parent.mkdir(parents=True)
        if name.startswith("sway"):
            text = text.format(width=int(WIDTH * session.scale), height=int(HEIGHT * session.scale),
                               scale=session.scale)
        path.write_text(text)
    session.environment.update(WLR_BACKENDS="x11", WLR_RENDERER="pixman", XDG_SESSION_TYPE="wayland",
                               SWAYSOCK=str(session.runtime / "sway.sock"))
    command = ["sway", "-c", str(session.home / ".config/sway/config")]
    if os.getuid() == 0:  # sway refuses to run as root
        subprocess.run(["chmod", "-R", "a+rwX", str(session.root)], check=True)
        subprocess.run(["chown", "65534:65534", str(session.runtime)], check=True)
        command = ["setpriv", "--reuid=65534", "--regid=65534", "--clear-groups", *command]
    session.start("sway", *command)
    time.sleep(4)
    session.environment["WAYLAND_DISPLAY"] = "wayland-1"


def start_shell(session):
    session.start("shell", "waybar")
