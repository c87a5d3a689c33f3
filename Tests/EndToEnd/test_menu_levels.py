"""Hosts that read a menu level by level show the current menu after changes of submenus."""

import copy

import pytest

from support.desktop_fixtures import bus, demo, start_demo, watcher  # noqa: F401
from support.level_host import LevelHost
from support.session_bus import Item, outline
from support.status_item_demo import GREEN, GREY, OUTLINE, SAMPLE
from support.tray import eventually

ROW = {"key": "new", "title": "New row", "action": "new"}


@pytest.fixture
def item(demo, watcher):
    return watcher.item()


@pytest.fixture
def host(bus, item):
    """A host that has read the root and all announced submenus."""
    host = LevelHost(bus.peer(), item)
    host.read()
    return host


def in_color(labels):
    """Returns the labels for such a host: a disabled row has its dot in the label."""
    return [in_color(each) if isinstance(each, list) else each.replace("Preparing", "🟠 Preparing")
            for each in labels]


def shows(host, labels):
    def looks():
        host.follow()
        return host.outline() == in_color(labels)
    return eventually(looks, what=f"{labels} instead of {host.outline()}")


def menu_with(change):
    menu = copy.deepcopy(SAMPLE)
    change(menu)
    return menu


def test_submenus_are_read_before_they_open(host):
    assert host.outline() == in_color([each if isinstance(each, str) else [] for each in OUTLINE])
    shows(host, OUTLINE)
    assert len(host.reads) == len(set(host.reads)) == 4, "each once, also the inner one"


def test_a_second_host_reads_submenus_as_well(bus, item, host):
    shows(host, OUTLINE)
    second = LevelHost(bus.peer(), item)
    second.read()
    shows(second, OUTLINE)


def test_only_a_changed_submenu_is_read_again(demo, host):
    shows(host, OUTLINE)
    host.reads.clear()
    menu = menu_with(lambda menu: menu[2]["submenu"].insert(1, ROW))
    demo.set_menu(menu)
    expected = copy.deepcopy(OUTLINE)
    expected[3].insert(1, "New row")
    shows(host, expected)
    assert host.reads == [host.find("Lab__1")]


def test_a_changed_inner_submenu_is_read_again(demo, host):
    shows(host, OUTLINE)
    host.reads.clear()
    demo.set_menu(menu_with(lambda menu: menu[3]["submenu"][1]["submenu"].append(ROW)))
    expected = copy.deepcopy(OUTLINE)
    expected[5][2].append("New row")
    shows(host, expected)
    assert host.reads == [host.find("More")]


def test_a_new_submenu_is_read_when_its_row_is_known(demo, host):
    shows(host, OUTLINE)
    host.reads.clear()
    new = {"key": "c", "title": "Third", "dot": GREEN, "submenu": [ROW]}
    demo.set_menu(menu_with(lambda menu: menu.insert(4, new)))
    shows(host, [*OUTLINE[:6], "Third", ["New row"], *OUTLINE[6:]])
    assert host.reads == [0, host.find("Third")]


def test_many_changes_at_once_reach_every_submenu(demo, item, host):
    servers = [{"key": f"s{number}", "title": f"Server {number}", "dot": GREY, "submenu": [ROW]}
               for number in range(20)]
    demo.set_menu(servers)
    for server in servers:
        server["submenu"] = [{"key": "state", "title": "Connected", "enabled": False}, ROW]
    demo.set_menu(servers)
    expected = [each for number in range(20)
                for each in (f"Server {number}", ["Connected", "New row"])]
    shows(host, expected)


def test_reads_return_the_new_menu_while_signals_are_delayed(bus, demo, item):
    """Only signals are delayed, not contents."""
    reader = Item(bus.peer(), item.service, item.path)
    reader.layout()
    for number in range(200):
        demo.do("description", text=f"indexing {number}")
        demo.do("icon", icon="busy" if number % 2 else "idle")
        demo.do("title", text=f" {number}")
    demo.set_menu(menu_with(lambda menu: menu.insert(0, ROW)))
    demo.settle()
    assert outline(reader.layout())[0] == "New row"


def test_an_opening_menu_is_current_even_if_signals_are_delayed(bus, demo, item):
    """The host is notified at once, before the menu is frozen."""
    peer = bus.peer()
    reader = Item(peer, item.service, item.path)
    reader.layout()
    for number in range(200):
        demo.do("description", text=f"indexing {number}")
        demo.do("icon", icon="busy" if number % 2 else "idle")
        demo.set_menu(menu_with(lambda menu: menu.append({"key": f"x{number}", "title": "x"})))
    demo.set_menu_on_update(menu_with(lambda menu: menu.insert(0, ROW)))
    demo.settle()
    peer.signals.clear()
    reader.about_to_show(0)
    demo.event("willOpen")
    demo.settle()
    eventually(lambda: peer.heard("LayoutUpdated"), what="a signal before it reads")
    assert outline(reader.layout())[0] == "New row"
    demo.set_menu(SAMPLE)
    demo.settle()
    assert outline(reader.layout())[0] == "New row", "what an open menu shows stays"
