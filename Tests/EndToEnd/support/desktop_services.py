"""Fake services of a desktop."""

from gi.repository import GLib

NOTIFICATIONS = "org.freedesktop.Notifications"
PORTAL = "org.freedesktop.portal.Desktop"
PORTAL_PATH = "/org/freedesktop/portal/desktop"


class NotificationServer:
    PATH = "/org/freedesktop/Notifications"
    DESCRIPTION = """<node><interface name="org.freedesktop.Notifications">
      <method name="GetCapabilities"><arg type="as" direction="out"/></method>
      <method name="Notify">
        <arg type="s" direction="in"/><arg type="u" direction="in"/><arg type="s" direction="in"/>
        <arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="as" direction="in"/>
        <arg type="a{sv}" direction="in"/><arg type="i" direction="in"/>
        <arg type="u" direction="out"/>
      </method>
      <method name="CloseNotification"><arg type="u" direction="in"/></method>
      <method name="GetServerInformation">
        <arg type="s" direction="out"/><arg type="s" direction="out"/>
        <arg type="s" direction="out"/><arg type="s" direction="out"/>
      </method>
    </interface></node>"""

    def __init__(self, peer, capabilities=("body", "body-markup", "actions"), name="Test"):
        self.peer, self.capabilities = peer, capabilities
        self.posted = []
        self.closed = []
        self.queries = 0
        peer.export(self.PATH, self.DESCRIPTION, {
            "GetCapabilities": self._capabilities, "Notify": self._notify,
            "GetServerInformation": lambda sender: GLib.Variant("(ssss)", (name, "", "1", "1.2")),
            "CloseNotification": lambda sender, number: self.closed.append(number)})
        peer.own(NOTIFICATIONS)

    def _capabilities(self, _sender):
        self.queries += 1
        return GLib.Variant("(as)", (self.capabilities,))

    def _notify(self, sender, application, replaces, icon, title, body, actions, hints, expires):
        number = replaces or len(self.posted) + 1
        self.client = sender
        self.posted.append({"replaces": replaces, "id": number, "title": title, "body": body,
                            "actions": actions, "hints": hints})
        return GLib.Variant("(u)", (number,))

    def send_signal(self, member, signature, *values):
        """Sends a signal, and waits until the last client has handled it."""
        self.peer.emit(self.PATH, NOTIFICATIONS, member, GLib.Variant(signature, values))
        self.peer.wait_for(self.client)


class FolderChooser:
    """A portal with answers set by the test, even before it has accepted a request."""

    DESCRIPTION = """<node><interface name="org.freedesktop.portal.FileChooser">
      <method name="OpenFile">
        <arg type="s" direction="in"/><arg type="s" direction="in"/><arg type="a{sv}" direction="in"/>
        <arg type="o" direction="out"/>
      </method>
      <property name="version" type="u" access="read"/>
    </interface></node>"""

    def __init__(self, peer, answer=None, version=3, handle=None):
        self.peer, self.answer, self.handle = peer, answer, handle
        self.questions = []
        peer.export(PORTAL_PATH, self.DESCRIPTION, {"OpenFile": self._open},
                    {"version": GLib.Variant("u", version)})
        peer.own(PORTAL)

    def _open(self, sender, parent, title, options):
        self.questions.append({"title": title, **options})
        predicted = (f"{PORTAL_PATH}/request/{sender[1:].replace('.', '_')}/"
                     f"{options['handle_token']}")
        self.request = self.handle or predicted
        if self.answer is not None and self.handle is None:
            self.respond(*self.answer)
        return GLib.Variant("(o)", (self.request,))

    def respond(self, code, *uris):
        results = {"uris": GLib.Variant("as", uris)} if uris else {}
        self.peer.emit(self.request, "org.freedesktop.portal.Request", "Response",
                       GLib.Variant("(ua{sv})", (code, results)))


APPLICATION_DESCRIPTION = """<node><interface name="org.freedesktop.Application">
  <method name="Activate"><arg type="a{sv}" direction="in"/></method>
</interface></node>"""

# A program of the session: owns the name in argv[2], prints calls, and ends on request.
APPLICATION = f'''
import sys
from support.session_bus import Peer, GLib
peer = Peer(sys.argv[1])
peer.export("/" + sys.argv[2].replace(".", "/"), """{APPLICATION_DESCRIPTION}""",
            {{"Activate": lambda sender, data: print("activated", data, flush=True)}})
peer.own(sys.argv[2])
print("ready", flush=True)
GLib.MainLoop().run()
'''
