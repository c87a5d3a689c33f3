"""The status item and its menu on a private bus, read like the hosts of many desktops."""

import copy
import time

import pytest
from gi.repository import GLib

from support.desktop_fixtures import bus, demo, start_demo, watcher  # noqa: F401
from support.session_bus import Item, SessionBus, Watcher, outline, rows
from support.status_item_demo import GREY, ORANGE, OUTLINE, SAMPLE
from support.tray import eventually


@pytest.fixture
def item(demo, watcher):
    return watcher.item()


@pytest.fixture
def emoji(tmp_path):
    """The environment of a desktop with a font for emoji."""
    (tmp_path / "fonts").mkdir()
    (tmp_path / "fonts" / "ColorEmoji.ttf").touch()
    return {"XDG_DATA_DIRS": str(tmp_path)}


def test_registers_its_path_with_a_complete_menu(item):
    assert item.path == "/org/ayatana/NotificationItem/zephyl_tray"
    assert outline(item.layout()) == OUTLINE


def test_has_all_properties_that_hosts_read(item):
    properties = item.properties()
    assert properties["Id"] == "zephyl-tray"
    assert properties["Category"] == "ApplicationStatus"
    assert properties["Status"] == "Active"
    assert properties["ItemIsMenu"] is True
    assert properties["IconName"] == "com.zephyl.tray-idle-symbolic"
    assert properties["IconThemePath"].endswith("/icons")
    assert properties["Menu"].startswith(item.path)
    for unused in ("Overlay", "Attention"):
        assert (properties[f"{unused}IconName"], properties[f"{unused}IconPixmap"]) == ("", [])
    assert properties["IconPixmap"]
    for width, height, pixels in properties["IconPixmap"]:
        assert 16 <= width == height <= 64
        assert len(pixels) == 4 * width * height
    assert item.get("Version", Item.MENU, item.menu_path) == 3
    assert item.get("Status", Item.MENU, item.menu_path) == "normal"
    assert item.get("TextDirection", Item.MENU, item.menu_path) == "ltr"
    assert item.get("IconThemePath", Item.MENU, item.menu_path) == [properties["IconThemePath"]]


def test_the_state_is_in_words_without_markup(demo, item):
    item.properties()
    demo.do("description", text="reachable, <b> & co")
    eventually(lambda: item.get("Title") == "Zephyl: reachable, ‹b› + co")
    assert item.get("ToolTip") == ("", [], "Zephyl", "reachable, &lt;b&gt; &amp; co")
    assert item.get("IconAccessibleDesc") == "Zephyl: reachable, <b> & co"
    demo.do("title", text=" 3")
    demo.do("icon", icon="busy")
    eventually(lambda: {"NewToolTip", "NewTitle", "XAyatanaNewLabel", "NewIcon"}
               <= {signal.member for signal in item.signals()})
    assert item.get("XAyatanaLabel") == " 3"
    assert item.get("IconName") == "com.zephyl.tray-busy-symbolic"


def test_activate_works_but_is_not_introspectable(demo, item):
    description, = item.peer.call(item.service, item.path, "org.freedesktop.DBus.Introspectable",
                                  "Introspect")
    assert '"ContextMenu"' in description and '"Activate"' not in description
    item.do("Activate", "(ii)", 0, 0)
    demo.event("reopened")
    item.do("ContextMenu", "(ii)", 10, 10)
    demo.event("reopened", 2)
    item.do("SecondaryActivate", "(ii)", 0, 0)
    item.do("Scroll", "(is)", 120, "vertical")
    item.do("ProvideXdgActivationToken", "(s)", "token")


def test_registers_again_with_every_watcher_and_host(bus, watcher, item):
    watcher.announce_host()
    watcher.item(2)
    watcher.peer.close()
    again = Watcher(bus.peer())
    assert outline(again.item().layout()) == OUTLINE


def test_waits_for_a_late_watcher(bus, start_demo):
    demo = start_demo()
    demo.log_line("no panel shows status items; waiting for one")
    assert outline(Watcher(bus.peer()).item().layout()) == OUTLINE


def test_appears_only_with_a_menu(watcher, start_demo):
    demo = start_demo(menu=None)
    demo.do("description", text="starting")
    eventually(lambda: "com.zephyl.tray" in watcher.peer.call(
        "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "ListNames")[0])
    assert watcher.items == []
    demo.set_menu(SAMPLE)
    assert outline(watcher.item().layout()) == OUTLINE


# How hosts read a menu

def test_gnome_reads_ids_and_then_properties_in_batches(bus, watcher, start_demo, emoji):
    watcher.peer.own("org.gnome.Shell")
    start_demo(**emoji)
    item = watcher.item()
    layout = item.layout(0, -1, ["type", "children-display"])
    for _, properties, _ in rows(layout):
        assert set(properties) <= {"type", "children-display"}
    identifiers = [row[0] for row in rows(layout)]
    group = item.group(identifiers)
    assert set(group) == set(identifiers)
    labels = [properties.get("label") for properties in group.values()]
    assert labels[0] == "Open Zephyl"
    assert "🟢 Lab__1" in labels and "🔴 Office & <Home>" in labels
    server = next(p for p in group.values() if p.get("label") == "🟢 Lab__1")
    assert "icon-data" not in server
    assert server["accessible-desc"] == "Lab_1, connected"
    model = next(p for p in group.values() if p.get("label") == "🟠 Preparing embeddings model…")
    assert "icon-data" not in model, "the icon would be behind the text"
    for identifier, properties, _ in rows(layout):
        if properties.get("children-display") == "submenu":
            assert item.about_to_show(identifier) is False
            item.event(identifier, "opened")


def test_gnome_gets_a_dot_in_the_label(watcher, start_demo, emoji):
    watcher.peer.own("org.gnome.Shell")
    demo = start_demo(**emoji)
    item = watcher.item()
    item.layout()
    menu = copy.deepcopy(SAMPLE)
    menu[2]["dot"] = ORANGE
    demo.set_menu(menu)
    signal, = eventually(lambda: item.menu_signals())
    assert signal.values[0][0][1] == {"label": "🟠 Lab__1", "accessible-desc": "Lab_1, in progress"}


def test_a_window_manager_with_the_name_of_gnomes_shell_changes_nothing(bus, item):
    bus.peer().own("org.gnome.Shell")
    assert outline(item.layout()) == OUTLINE
    assert "icon-data" in item.group([item.find("Lab__1")]).popitem()[1]


def test_plasma_reads_level_by_level(item):
    def read(parent):
        assert item.about_to_show(parent) is False
        item.event(parent, "opened", GLib.Variant("s", ""))
        found = []
        for identifier, properties, children in item.layout(parent, 1)[2]:
            assert children == []
            found.append(properties.get("label", "---"))
            if properties.get("children-display") == "submenu":
                found.append(read(identifier))
        return found

    grey = [label.replace("Preparing", "🟠 Preparing") if "Preparing" in label else label
            for label in OUTLINE]
    assert read(0) == grey, "an icon on a disabled row would lose its color"


def test_mate_sends_opened_before_it_reads(demo, item):
    item.event(0, "opened")
    assert item.about_to_show(0) is False
    assert outline(item.layout()) == OUTLINE
    item.event(item.find("Rename…"), "clicked")
    assert demo.event("chosen") == {"event": "chosen", "action": "renameServer", "object": "a"}
    assert demo.names() == ["willOpen", "didClose", "chosen"]


def test_budgie_reads_all_levels_at_once_and_sends_no_events(demo, item):
    _, properties, _ = item.layout(0, -1, [])
    assert properties == {"children-display": "submenu"}
    assert outline(item.layout(0, -1, [])) == OUTLINE
    item.event(item.find("Open Zephyl"), "clicked", GLib.Variant("i", 0))
    assert demo.event("chosen")["action"] == "openDesktopWindow"


def test_waybar_and_xfce_send_groups_of_calls(demo, item):
    identifiers = [row[0] for row in rows(item.layout())]
    assert item.menu("AboutToShowGroup", "(ai)", [0, identifiers[0], 4711]) == ([], [4711])
    assert set(item.group([])) == {0, *identifiers}
    failed, = item.menu("EventGroup", "(a(isvu))", [
        (item.find("Lab__1"), "opened", GLib.Variant("i", 0), 0),
        (4711, "clicked", GLib.Variant("s", "x"), 0),
        (item.find("Quit Zephyl"), "clicked", GLib.Variant("i", 0), 0)])
    assert failed == [4711]
    assert demo.event("chosen")["action"] == "quit"
    assert demo.names() == ["needsUpdate", "willOpen", "didClose", "chosen"]


def test_unknown_rows_and_properties_are_refused_in_single_calls(item):
    with pytest.raises(GLib.Error):
        item.layout(4711)
    with pytest.raises(GLib.Error):
        item.menu("GetProperty", "(is)", 4711, "label")
    with pytest.raises(GLib.Error):
        item.menu("GetProperty", "(is)", item.find("Quit Zephyl"), "nothing")
    assert item.menu("GetProperty", "(is)", item.find("Quit Zephyl"), "label") == ("Quit Zephyl",)
    assert item.group([4711]) == {}
    item.event(4711, "clicked")
    assert item.about_to_show(4711) is False


def test_a_key_equivalent_is_a_shortcut(item):
    assert item.group([item.find("Quit Zephyl")], ["shortcut"]).popitem()[1] == {
        "shortcut": [["Control", "q"]]}


# Signals about changes

def changed(**titles):
    menu = copy.deepcopy(SAMPLE)
    for row in menu:
        if row["key"] in titles:
            row["title"] = titles[row["key"]]
    return menu


def test_an_equal_menu_sends_no_signal(demo, item):
    item.layout()
    for _ in range(5):
        demo.set_menu(SAMPLE)
        demo.do("description", text="")
        demo.do("icon", icon="idle")
    demo.set_menu(changed(quit="Leave"))
    eventually(lambda: item.menu_signals())
    assert [signal.member for signal in item.signals()] == ["ItemsPropertiesUpdated"]


def test_a_change_sends_only_the_new_values(demo, item):
    server, = [row for row in rows(item.layout()) if row[1].get("label") == "Lab__1"]
    menu = changed(quit="Leave")
    menu[2]["dot"] = GREY
    demo.set_menu(menu)
    signal, = eventually(lambda: item.menu_signals())
    updated, removed = signal.values
    assert removed == []
    updated = dict(updated)
    assert updated[item.find("Leave")] == {"label": "Leave"}
    assert set(updated[server[0]]) == {"icon-data", "accessible-desc"}
    assert updated[server[0]]["accessible-desc"] == "Lab_1, off"
    assert len(updated) == 2


def test_new_rows_are_announced_once_and_keep_the_other_ids(demo, item):
    before = {properties["label"]: identifier for identifier, properties, _ in rows(item.layout())
              if "label" in properties}
    for number in range(20):
        demo.set_menu([{"key": f"new{number}", "title": f"New {number}"}, *SAMPLE])
    eventually(lambda: "New 19" in outline(item.layout()))
    after = {properties["label"]: identifier for identifier, properties, _ in rows(item.layout())
             if "label" in properties}
    assert {label: after[label] for label in before} == before
    times = [signal.time for signal in item.menu_signals()]
    assert all(later - earlier > 0.2 for earlier, later in zip(times, times[1:]))
    assert {signal.member for signal in item.menu_signals()} == {"LayoutUpdated"}


def test_a_flood_of_changes_becomes_at_most_four_signals_a_second(demo, item):
    item.layout()
    start = time.monotonic()
    count = 0
    while time.monotonic() < start + 3:
        count += 1
        menu = changed(quit=f"Quit {count}")
        if count % 2:
            menu.insert(0, {"key": f"x{count}", "title": "x"})
        demo.set_menu(menu)
        demo.do("description", text=f"indexing {count}")
        demo.do("icon", icon="busy" if count % 2 else "idle")
        demo.do("title", text=f" {count}")
    assert count > 1000
    eventually(lambda: item.get("Title") == f"Zephyl: indexing {count}")
    times = [signal.time for signal in item.signals()]
    assert all(later - earlier > 0.95 for earlier, later in zip(times, times[4:])), times
    assert {"NewIcon", "NewToolTip", "XAyatanaNewLabel", "LayoutUpdated"} <= {
        signal.member for signal in item.signals()}
    eventually(lambda: f"Quit {count}" in outline(item.layout()))


# Opening, clicking, closing

def test_an_update_requested_by_opening_is_shown_before_the_menu_is_frozen(demo, item):
    item.layout()
    demo.set_menu_on_update(changed(quit="Quit now"))
    assert item.about_to_show(0) is False
    demo.event("willOpen")
    eventually(lambda: "Quit now" in outline(item.layout()))
    demo.set_menu(changed(quit="Quit later"))
    demo.do("running", identifier="org.zephyl.nobody")
    demo.event("running")
    assert "Quit now" in outline(item.layout())
    item.event(0, "closed")
    eventually(lambda: "Quit later" in outline(item.layout()))


def test_a_menu_that_was_announced_long_before_is_up_to_date_when_it_opens(demo, item):
    item.layout()
    item.about_to_show(0)  # as GNOME's extension does when it connects
    announced = time.monotonic()
    demo.event("willOpen")
    demo.set_menu_on_update(changed(quit="Quit now"))
    # A call within a second belongs to the same opening.
    eventually(lambda: time.monotonic() > announced + 1, what="another opening")
    item.event(0, "opened")
    demo.event("willOpen", 2)
    eventually(lambda: "Quit now" in str(item.menu_signals()), what="a signal of the new row")


def test_a_click_on_a_removed_row_does_nothing(demo, item):
    old = item.find("Rename…")
    menu = copy.deepcopy(SAMPLE)
    menu[2]["submenu"][3]["object"] = "another server"
    demo.set_menu(menu)
    eventually(lambda: item.find("Rename…") != old)
    item.event(old, "clicked")
    item.event(item.find("Quit Zephyl"), "clicked")
    assert demo.event("chosen")["action"] == "quit"


def test_a_click_on_information_or_a_submenu_does_nothing(demo, item):
    for label in ("Connected", "Lab__1"):
        item.event(item.find(label), "clicked")
    item.event(item.find("Quit Zephyl"), "clicked")
    assert demo.event("chosen")["action"] == "quit"


def test_the_menu_counts_as_closed_when_its_host_disconnects(bus, demo, item):
    host = bus.peer()
    Item(host, item.service, item.path).about_to_show(0)
    demo.event("willOpen")
    host.close()
    demo.event("didClose")


def test_calls_are_answered_while_the_main_thread_is_busy(demo, item):
    demo.do("block", ms=2000)
    demo.event("blocked")
    demo.do("description", text="after the wait")
    limit = 0.05
    for ask in (item.properties, item.layout, lambda: item.about_to_show(0),
                lambda: item.event(0, "opened"), lambda: item.group([])):
        ask()
        assert item.peer.took < limit
    assert demo.names() == ["blocked"]
    demo.event("willOpen")


# The bus itself

def test_a_restarted_bus_gets_the_item_again(bus, demo, item):
    demo.do("description", text="reachable")
    eventually(lambda: item.get("Title") == "Zephyl: reachable")
    bus.kill()
    demo.log_line("no session bus answers")
    demo.log_line("[tray] reachable")
    bus.start()
    watcher = Watcher(bus.peer())
    again = watcher.item(limit=15)
    assert outline(again.layout()) == OUTLINE
    assert again.get("Title") == "Zephyl: reachable"


def test_a_late_bus_gets_the_item(start_demo):
    bus = SessionBus()
    try:
        demo = start_demo(DBUS_SESSION_BUS_ADDRESS=bus.address)
        demo.log_line("no session bus answers")
        bus.start()
        assert outline(Watcher(bus.peer()).item(limit=15).layout()) == OUTLINE
    finally:
        bus.close()
