"""Reads the programs of a session like a screen reader."""

from gi.repository import GLib

from support.session_bus import Peer
from support.tray import eventually

INTERFACE = "org.a11y.atspi."
ROOT = ("org.a11y.atspi.Registry", "/org/a11y/atspi/accessible/root")
STATES = {"checked": 4, "enabled": 8, "focused": 12, "focusable": 11, "visible": 30, "selected": 23, "showing": 25,
          "default": 39}


class Accessible:
    """A window or an element of a window."""

    def __init__(self, peer, service, path):
        self._peer, self._service, self._path = peer, service, path

    def _call(self, interface, method, signature="()", *arguments):
        return self._peer.call(self._service, self._path, interface, method, signature, *arguments)

    def _get(self, interface, name):
        return self._call("org.freedesktop.DBus.Properties", "Get", "(ss)",
                          INTERFACE + interface, name)[0]

    @property
    def name(self):
        return self._get("Accessible", "Name")

    @property
    def description(self):
        return self._get("Accessible", "Description")

    @property
    def role(self):
        return self._call(INTERFACE + "Accessible", "GetRoleName")[0]

    @property
    def process(self):
        return self._peer.call("org.freedesktop.DBus", "/org/freedesktop/DBus",
                               "org.freedesktop.DBus", "GetConnectionUnixProcessID", "(s)",
                               self._service)[0]

    def has(self, state):
        low, high = self._call(INTERFACE + "Accessible", "GetState")[0]
        return bool((high << 32 | low) >> STATES[state] & 1)

    def children(self):
        return [Accessible(self._peer, service, path) for service, path
                in self._call(INTERFACE + "Accessible", "GetChildren")[0]]

    def all(self):
        """Returns this element and all its descendants."""
        yield self
        for child in self.children():
            yield from child.all()

    def find(self, role, name=None):
        return next(each for each in self.all()
                    if each.role == role and name in (None, each.name))

    @property
    def text(self):
        return self._call(INTERFACE + "Text", "GetText", "(ii)", 0,
                          self._get("Text", "CharacterCount"))[0]

    def left_of(self, text):
        """Returns the left edge on the screen of the first character of a part of the text."""
        return self._call(INTERFACE + "Text", "GetCharacterExtents", "(iu)",
                          self.text.index(text), 0)[0]

    def box(self):
        """Returns left, top, width and height on the screen."""
        return self._call(INTERFACE + "Component", "GetExtents", "(u)", 0)[0]

    def grab_focus(self):
        self._call(INTERFACE + "Component", "GrabFocus")

    def press(self):
        self._call(INTERFACE + "Action", "DoAction", "(i)", 0)


class Accessibility:
    """The accessibility bus of a session."""

    def __init__(self, session_bus):
        address, = session_bus.peer().connection.call_sync(
            "org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress", None, None, 0, 10000,
            None).unpack()
        self._peer = Peer(address)

    def windows_of(self, pid):
        for application in Accessible(self._peer, *ROOT).children():
            try:
                if application.process == pid:
                    return application.children()
            except GLib.Error:  # it has just disappeared
                continue
        return []

    def window_of(self, pid):
        """Waits for the first window of a process."""
        return eventually(lambda: self.windows_of(pid), what="an accessible window")[0]

    def close(self):
        self._peer.close()
