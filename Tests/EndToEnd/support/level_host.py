"""A host that reads a menu level by level, caches each level, and reads a level again only
when LayoutUpdated names it, like Qt's importer of menus."""

from gi.repository import GLib

from support.session_bus import Item


class LevelHost:
    def __init__(self, peer, item):
        self.peer = peer
        self.item = Item(peer, item.service, item.path)
        self.menu_path = self.item.menu_path
        self.levels = {}      # the ids of the rows of each menu that was read, by its id
        self.properties = {}  # of each row, by its id
        self.reads = []       # the ids of the menus, in the order in which they were read
        self.handled = 0      # of the peer's signals

    def read(self, menu=0):
        """Reads one level, like a menu that is opened for the first time."""
        self.reads.append(menu)
        layout = self.item.layout(menu, 1)
        self.levels[menu] = [identifier for identifier, _, _ in layout[2]]
        for identifier, properties, children in layout[2]:
            assert children == []
            self.properties[identifier] = properties

    def follow(self):
        """Handles the signals that have arrived since the last call."""
        signals = [signal for signal in self.peer.signals[self.handled:]]
        self.handled += len(signals)
        for signal in signals:
            if signal.interface != Item.MENU or signal.sender != self.item.service:
                continue
            if signal.member == "LayoutUpdated":
                self._layout_updated(signal.values[1])
            elif signal.member == "ItemsPropertiesUpdated":
                self._properties_updated(*signal.values)

    def _layout_updated(self, menu):
        known = {0} | {row for rows in self.levels.values() for row in rows}
        if menu not in known:
            return
        try:
            self.read(menu)
        except GLib.Error:  # the row was removed meanwhile, which another signal reports
            pass

    def _properties_updated(self, updated, removed):
        for identifier, properties in updated:
            self.properties.setdefault(identifier, {}).update(properties)
        for identifier, names in removed:
            for name in names:
                self.properties.get(identifier, {}).pop(name, None)

    def outline(self, menu=0):
        """Returns the labels, with those of a submenu in a list behind it. A submenu that was
        never read is empty."""
        shown = []
        for row in self.levels.get(menu, []):
            shown.append(self.properties[row].get("label", "---"))
            if self.properties[row].get("children-display") == "submenu":
                shown.append(self.outline(row))
        return shown

    def find(self, label):
        return next(row for row, properties in self.properties.items()
                    if properties.get("label") == label)
