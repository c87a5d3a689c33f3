"""A private session bus, and peers of the tray on it."""

import os
import pathlib
import shutil
import signal
import socket
import subprocess
import tempfile
import threading
import time

import gi

gi.require_version("Gio", "2.0")
from gi.repository import Gio, GLib  # noqa: E402

from support.tray import eventually  # noqa: E402

CONFIGURATION = """<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path={socket}</listen>
  <auth>EXTERNAL</auth>
  {services}
  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
  </policy>
</busconfig>
"""


class SessionBus:
    """A bus that can be killed and restarted with the same address. With an environment it starts
    services of the machine in it: those in `services`, by default all. Otherwise it starts none."""

    def __init__(self, services_environment=None, services=None):
        self.services_environment = services_environment
        self.services = services
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="zb-", dir="/tmp"))
        self.socket = self.root / "bus"
        self.address = f"unix:path={self.socket}"
        self.process = None
        self._loop = GLib.MainLoop()
        self._thread = threading.Thread(target=self._loop.run)
        self._thread.start()
        self._peers = []

    def start(self):
        configuration = self.root / "bus.conf"
        configuration.write_text(CONFIGURATION.format(socket=self.socket,
                                                      services=self._service_directories()))
        self.socket.unlink(missing_ok=True)
        self.process = subprocess.Popen(
            ["dbus-daemon", f"--config-file={configuration}", "--nofork"],
            stdin=subprocess.DEVNULL, env=self.services_environment)
        eventually(self._listens, what="the bus")
        return self

    def _service_directories(self):
        if self.services_environment is None:
            return ""
        if self.services is None:
            return "<standard_session_servicedirs/>"
        directory = self.root / "services"
        directory.mkdir(exist_ok=True)
        for name in self.services:
            link = directory / f"{name}.service"
            if not link.is_symlink():
                link.symlink_to(f"/usr/share/dbus-1/services/{name}.service")
        return f"<servicedir>{directory}</servicedir>"

    def _listens(self):
        with socket.socket(socket.AF_UNIX) as probe:
            return probe.connect_ex(str(self.socket)) == 0

    def suspend(self):
        """Suspends the bus: it accepts connections, but does not answer."""
        self.process.send_signal(signal.SIGSTOP)

    def resume(self):
        self.process.send_signal(signal.SIGCONT)

    def kill(self):
        self.process.kill()
        self.process.wait()
        self.socket.unlink(missing_ok=True)

    def peer(self):
        self._peers.append(Peer(self.address))
        return self._peers[-1]

    def close(self):
        for peer in self._peers:
            peer.close()
        if self.process is not None:
            self.kill()
        self._loop.quit()
        self._thread.join()
        shutil.rmtree(self.root, ignore_errors=True)


class Signal:
    def __init__(self, sender, path, interface, member, values):
        self.time = time.monotonic()
        self.sender, self.path, self.interface, self.member = sender, path, interface, member
        self.values = values

    def __repr__(self):
        return f"{self.member}{self.values}"


class Peer:
    """A connection to the bus, which records every received signal."""

    def __init__(self, address):
        flags = (Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT
                 | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION)
        self.connection = Gio.DBusConnection.new_for_address_sync(address, flags, None, None)
        self.name = self.connection.get_unique_name()
        self.signals = []
        self.connection.signal_subscribe(None, None, None, None, None, 0, self._heard)

    def _heard(self, _connection, sender, path, interface, member, parameters):
        self.signals.append(Signal(sender, path, interface, member, parameters.unpack()))

    def heard(self, member):
        return [signal for signal in self.signals if signal.member == member]

    def call(self, service, path, interface, method, signature="()", *arguments, limit=5000):
        """Calls a method and returns its values. `took` is the time until the reply."""
        begin = time.monotonic()
        reply = self.connection.call_sync(
            service, path, interface, method, GLib.Variant(signature, arguments), None,
            Gio.DBusCallFlags.NO_AUTO_START, limit, None)
        self.took = time.monotonic() - begin
        return reply.unpack()

    def own(self, name):
        result, = self.call("org.freedesktop.DBus", "/org/freedesktop/DBus",
                            "org.freedesktop.DBus", "RequestName", "(su)", name, 4)
        assert result == 1, f"{name} is owned already"

    def release(self, name):
        self.call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                  "ReleaseName", "(s)", name)

    def export(self, path, description, methods, properties=None):
        """Exports the interface of an XML description. A method is a function of the sender
        and the call's values, which returns a variant or nothing."""
        interface = Gio.DBusNodeInfo.new_for_xml(description).interfaces[0]

        def called(_connection, sender, _path, _interface, method, parameters, invocation):
            try:
                invocation.return_value(methods[method](sender, *parameters.unpack()))
            except Exception as error:  # is returned to the caller
                invocation.return_dbus_error("org.zephyl.Test.Failed", repr(error))

        def read(_connection, _sender, _path, _interface, name):
            return (properties or {})[name]

        self.connection.register_object(path, interface, called, read, None)

    def emit(self, path, interface, member, values=None, to=None):
        """Broadcasts a signal, or sends it to the connection with a unique name.

        A method call that is being handled is answered first, unless its handler emits the signal.
        """
        def send():
            self.connection.emit_signal(to, path, interface, member, values)
            self.connection.flush_sync(None)
            sent.set()

        sent = threading.Event()
        if GLib.MainContext.default().is_owner():
            send()
        else:
            GLib.idle_add(send)
            assert sent.wait(10)

    def wait_for(self, name):
        """Waits until the connection with that unique name has handled all earlier messages."""
        self.call(name, "/", "org.freedesktop.DBus.Peer", "Ping")

    def send_calls(self, count, service, path, interface, method, signature="()", *arguments):
        """Calls a method repeatedly, without waiting for replies."""
        for _ in range(count):
            message = Gio.DBusMessage.new_method_call(service, path, interface, method)
            message.set_flags(Gio.DBusMessageFlags.NO_REPLY_EXPECTED)
            message.set_body(GLib.Variant(signature, arguments))
            self.connection.send_message(message, Gio.DBusSendMessageFlags.NONE)
        self.connection.flush_sync(None)

    def close(self):
        if not self.connection.is_closed():
            try:
                self.connection.close_sync(None)
            except GLib.Error:
                pass


WATCHER = "org.kde.StatusNotifierWatcher"
WATCHER_DESCRIPTION = """<node><interface name="org.kde.StatusNotifierWatcher">
  <method name="RegisterStatusNotifierItem"><arg type="s" direction="in"/></method>
  <method name="RegisterStatusNotifierHost"><arg type="s" direction="in"/></method>
  <property name="RegisteredStatusNotifierItems" type="as" access="read"/>
  <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
  <property name="ProtocolVersion" type="i" access="read"/>
  <signal name="StatusNotifierHostRegistered"/>
</interface></node>"""


class Watcher:
    """A watcher that records registrations of items."""

    def __init__(self, peer):
        self.peer = peer
        self.items = []
        self.times = []  # of the registrations
        peer.export("/StatusNotifierWatcher", WATCHER_DESCRIPTION,
                    {"RegisterStatusNotifierItem": self._register,
                     "RegisterStatusNotifierHost": lambda sender, name: None},
                    {"RegisteredStatusNotifierItems": GLib.Variant("as", []),
                     "IsStatusNotifierHostRegistered": GLib.Variant("b", True),
                     "ProtocolVersion": GLib.Variant("i", 0)})
        peer.own(WATCHER)

    def _register(self, sender, service):
        self.times.append(time.monotonic())
        self.items.append((sender, service))

    def item(self, count=1, limit=10.0):
        """Waits for the count-th registration and returns the item."""
        eventually(lambda: len(self.items) >= count, limit, "a registered item")
        sender, path = self.items[count - 1]
        return Item(self.peer, sender, path)

    def announce_host(self):
        self.peer.emit("/StatusNotifierWatcher", WATCHER, "StatusNotifierHostRegistered")


class Item:
    """A status item and its menu, as seen by a host."""

    ITEM = "org.kde.StatusNotifierItem"
    MENU = "com.canonical.dbusmenu"

    def __init__(self, peer, service, path):
        self.peer, self.service, self.path = peer, service, path

    def properties(self):
        return self.peer.call(self.service, self.path, "org.freedesktop.DBus.Properties", "GetAll",
                              "(s)", self.ITEM)[0]

    def get(self, name, interface=ITEM, path=None):
        return self.peer.call(self.service, path or self.path, "org.freedesktop.DBus.Properties",
                              "Get", "(ss)", interface, name)[0]

    def do(self, method, signature="()", *arguments):
        return self.peer.call(self.service, self.path, self.ITEM, method, signature, *arguments)

    @property
    def menu_path(self):
        return self.get("Menu")

    def menu(self, method, signature, *arguments):
        return self.peer.call(self.service, self.menu_path, self.MENU, method, signature,
                              *arguments)

    def layout(self, parent=0, depth=-1, names=()):
        return self.menu("GetLayout", "(iias)", parent, depth, list(names))[1]

    def group(self, ids, names=()):
        return dict(self.menu("GetGroupProperties", "(aias)", list(ids), list(names))[0])

    def event(self, identifier, name, data=None):
        self.menu("Event", "(isvu)", identifier, name, data or GLib.Variant("i", 0), 0)

    def about_to_show(self, identifier=0):
        return self.menu("AboutToShow", "(i)", identifier)[0]

    def find(self, label):
        """Returns the id of the row with this label."""
        return next(identifier for identifier, properties, _ in rows(self.layout())
                    if properties.get("label") == label)

    def find_enabled(self, label):
        """Waits until the row with this label is enabled, and returns its id."""
        def enabled():
            return next((identifier for identifier, properties, _ in rows(self.layout())
                         if properties.get("label") == label and properties.get("enabled", True)),
                        None)
        return eventually(enabled, what=f"an enabled row {label!r}")

    def menu_signals(self):
        return [signal for signal in self.peer.signals
                if signal.interface == self.MENU and signal.sender == self.service]

    def signals(self):
        return [signal for signal in self.peer.signals
                if signal.sender == self.service and signal.interface in (self.ITEM, self.MENU)]


def rows(layout):
    """Yields all rows of a layout below its root, as id, properties and children."""
    for child in layout[2]:
        yield child
        yield from rows(child)


def outline(layout):
    """Returns the labels of a layout as nested lists."""
    described = []
    for _, properties, children in layout[2]:
        described.append(properties.get("label", "---"))
        if children:
            described.append(outline((0, {}, children)))
    return described
