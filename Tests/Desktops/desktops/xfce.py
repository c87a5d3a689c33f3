"""XFCE: xfwm4, xfce4-panel, xfce4-notifyd."""

NAME = "XFCE"
PROGRAM = "xfce4-panel"
PACKAGES = ["xfce4-panel", "xfwm4", "xfce4-notifyd"]
SETTLING = 2
NOTIFIER = "/usr/lib/x86_64-linux-gnu/xfce4/notifyd/xfce4-notifyd"
PANEL = (0, 0, 1280, 28)
BUTTON = 1
# The button of the action. A click elsewhere dismisses the notification.
NOTIFICATION_ACTION = (0.85, 0.75)
UNSUPPORTED = {"folder count": "the panel shows no text beside an item"}

CHANNEL = """<?xml version="1.0" encoding="UTF-8"?>
<channel name="xfce4-panel" version="1.0"><property name="configver" type="int" value="2"/>
<property name="panels" type="array"><value type="int" value="1"/>
<property name="dark-mode" type="bool" value="{dark}"/>
<property name="panel-1" type="empty"><property name="position" type="string" value="p=6;x=0;y=0"/>
<property name="length" type="uint" value="100"/>
<property name="position-locked" type="bool" value="true"/>
<property name="icon-size" type="uint" value="16"/><property name="size" type="uint" value="28"/>
<property name="plugin-ids" type="array"><value type="int" value="1"/></property></property>
</property><property name="plugins" type="empty">
<property name="plugin-1" type="string" value="systray"/></property></channel>
"""


def start(session):
    channel = session.home / ".config/xfce4/xfconf/xfce-perchannel-xml"
    channel.mkdir(parents=True)
    (channel / "xfce4-panel.xml").write_text(CHANNEL.format(dark=str(session.dark).lower()))
    session.start("wm", "xfwm4")


def start_shell(session):
    session.start("shell", "xfce4-panel", "--disable-wm-check")
