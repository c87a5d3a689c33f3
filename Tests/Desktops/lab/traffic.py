"""Records the messages of a desktop and the tray. Derives the menu that the desktop knows."""

import threading
import time

from gi.repository import Gio, GLib

MENU = "com.canonical.dbusmenu"
ITEM = "org.kde.StatusNotifierItem"
NOTIFICATIONS = "org.freedesktop.Notifications"
FILE_CHOOSER = "org.freedesktop.portal.FileChooser"
RULES = [f"interface='{name}'" for name in
         (MENU, ITEM, NOTIFICATIONS, FILE_CHOOSER, "org.kde.StatusNotifierWatcher")] + [
             "type='method_return'"]
LONGEST_LINE = 4000  # of a saved record, which would otherwise contain whole pictures


class Call:
    """A method call or a signal. `reply` is None until a call is answered."""

    def __init__(self, message):
        self.time = time.monotonic()
        self.sender, self.destination = message.get_sender(), message.get_destination()
        self.serial = message.get_serial()
        self.member, self.interface = message.get_member(), message.get_interface()
        body = message.get_body()
        self.values = body.unpack() if body is not None else ()
        self.is_signal = message.get_message_type() == Gio.DBusMessageType.SIGNAL
        self.reply = None

    def __repr__(self):
        return f"{self.sender} {self.member}{self.values}"


class Traffic:
    """Records the messages on a bus that match RULES, from its construction until `close`. Locks its
    records, because messages arrive on a thread of the D-Bus library."""

    def __init__(self, address):
        flags = (Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT
                 | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION)
        self._lock = threading.Lock()
        self._calls = []
        self._waiting = {}  # calls by sender and serial
        self._connection = Gio.DBusConnection.new_for_address_sync(address, flags, None, None)
        self._connection.add_filter(self._record)
        self._connection.call_sync(
            "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus.Monitoring",
            "BecomeMonitor", GLib.Variant("(asu)", (RULES, 0)), None, 0, 5000, None)

    def _record(self, _connection, message, incoming):
        kind = message.get_message_type()
        with self._lock:
            if incoming and kind in (Gio.DBusMessageType.METHOD_CALL, Gio.DBusMessageType.SIGNAL):
                call = Call(message)
                self._calls.append(call)
                self._waiting[call.sender, call.serial] = call
            elif incoming and kind == Gio.DBusMessageType.METHOD_RETURN:
                call = self._waiting.get((message.get_destination(), message.get_reply_serial()))
                if call is not None:
                    body = message.get_body()
                    call.reply = body.unpack() if body is not None else ()
        return message if not incoming or kind == Gio.DBusMessageType.METHOD_RETURN else None

    def calls(self, member=None, interface=None, since=0.0):
        """Returns the recorded calls and signals in order. `since` is a time of the monotonic clock."""
        with self._lock:
            return [call for call in self._calls
                    if member in (None, call.member) and interface in (None, call.interface)
                    and call.time >= since]

    def events(self, name, since=0.0):
        """Returns the ids of the rows for which hosts sent an event, alone or in a group."""
        rows = [call.values[0] for call in self.calls("Event", MENU, since)
                if call.values[1] == name]
        for call in self.calls("EventGroup", MENU, since):
            rows += [each[0] for each in call.values[0] if each[1] == name]
        return rows

    def readers(self, since=0.0):
        """Returns the connections that have read the menu, in the order of their last reads."""
        senders = [call.sender for call in self.calls("GetLayout", MENU, since) if call.reply]
        return sorted(set(senders), key=lambda sender: -senders[::-1].index(sender))

    def view(self, host, since):
        """Returns the menu that a host knows, of the tray that was started at `since`."""
        view = HostView()
        for call in self.calls(interface=MENU, since=since):
            if call.is_signal:
                view.apply_signal(call)
            elif call.sender == host and call.reply is not None:
                view.apply_reply(call)
        return view

    def save(self, path):
        """Writes the recorded messages to a file, with the seconds since the first one."""
        calls = self.calls()
        with open(path, "w") as file:
            for call in calls:
                reply = "" if call.reply is None else f" -> {call.reply}"
                line = f"{call.time - calls[0].time:8.3f} {call}{reply}"
                file.write(line[:LONGEST_LINE] + "\n")

    def close(self):
        self._connection.close_sync(None)


class HostView:
    """The part of a menu that a host knows from replies and signals."""

    def __init__(self):
        self.properties = {}  # by row id
        self.children = {}    # row ids by menu id, without menus that were never read

    def apply_reply(self, call):
        if call.member == "GetLayout":
            parent, depth, names = call.values
            self._store(call.reply[1], depth, names)
        elif call.member == "GetGroupProperties":
            for row, properties in call.reply[0]:
                self.properties.setdefault(row, {}).update(properties)
        elif call.member == "GetProperty":
            row, name = call.values
            self.properties.setdefault(row, {})[name] = call.reply[0]

    def _store(self, row, depth, names):
        identifier, properties, children = row
        if names:
            self.properties.setdefault(identifier, {}).update(properties)
        else:
            self.properties[identifier] = dict(properties)
        if depth == 0:
            return
        self.children[identifier] = [child[0] for child in children]
        for child in children:
            self._store(child, depth - 1, names)

    def apply_signal(self, call):
        if call.member != "ItemsPropertiesUpdated":
            return
        updated, removed = call.values
        for row, properties in updated:
            if row in self.properties:
                self.properties[row].update(properties)
        for row, names in removed:
            for name in names:
                self.properties.get(row, {}).pop(name, None)

    def outline(self, menu=0):
        """Returns the labels of a menu (see `label_of`) or None if the host has not read it. The label
        of a submenu is followed by the outline of the submenu."""
        if menu not in self.children:
            return None
        shown = []
        for row in self.children[menu]:
            shown.append(label_of(self.properties.get(row, {})))
            if self.properties.get(row, {}).get("children-display") == "submenu":
                shown.append(self.outline(row))
        return shown


def label_of(properties):
    """Returns a label without the dot of its state and, unless it is about embeddings, without the
    text after a dash."""
    label = properties.get("label", "---")
    for dot in ("⚪ ", "🟢 ", "🟠 ", "🔴 "):
        label = label.removeprefix(dot)
    return label.split(" — ")[0] if "embeddings" not in label else label


def outline_of(layout):
    """Returns the outline of a complete layout."""
    shown = []
    for _, properties, children in layout[2]:
        shown.append(label_of(properties))
        if properties.get("children-display") == "submenu":
            shown.append(outline_of((0, {}, children)))
    return shown


def differences(known, layout):
    """Returns pairs of lists of labels: those that a host knows, and those of the layout, for each menu
    where they differ. Ignores menus that the host has not read."""
    if known is None:
        return []
    labels = [each for each in known if isinstance(each, str)]
    wanted = [each for each in layout if isinstance(each, str)]
    if labels != wanted:
        return [(labels, wanted)]
    inner = zip((each for each in known if not isinstance(each, str)),
                (each for each in layout if not isinstance(each, str)))
    return [difference for left, right in inner for difference in differences(left, right)]
