"""The status item on a real panel. Saves screenshots in $ZEPHYL_SCREENSHOTS, if that is set."""

import os
import pathlib

import pytest

from support.panel import BAR, HEIGHT, WIDTH, Desktop
from support.session_bus import Item
from support.status_item_demo import SAMPLE, Demo
from support.tray import eventually


@pytest.fixture(params=[True, False], ids=["dark", "light"])
def desktop(request):
    desktop = Desktop(dark=request.param)
    desktop.name = "dark" if request.param else "light"
    yield desktop
    desktop.close()


@pytest.fixture
def start_demo(desktop):
    demos = []

    def start():
        demos.append(Demo(desktop.bus.address, desktop.environment))
        demos[-1].set_menu(SAMPLE)
        return demos[-1]

    yield start
    for demo in demos:
        demo.close()


def keep(desktop, name):
    directory = os.environ.get("ZEPHYL_SCREENSHOTS")
    if directory:
        desktop.save_screenshot(pathlib.Path(directory) / f"{name}-{desktop.name}.png")


def start_panel(desktop):
    """Starts the panel and returns a picture of its bar when it is stable."""
    screen = desktop.picture(BAR)
    desktop.start_panel()
    return desktop.until_it_differs(screen, BAR)[0]


def test_the_item_appears_opens_its_menu_and_returns_with_the_panel(desktop, start_demo):
    empty = start_panel(desktop)
    demo = start_demo()
    idle, icon = desktop.until_it_differs(empty, BAR)
    keep(desktop, "idle")
    demo.do("icon", icon="busy")
    busy, changed = desktop.until_it_differs(idle, BAR)
    assert icon[0] - 2 <= changed[0] and changed[2] <= icon[2] + 2

    closed = desktop.picture()
    middle = (icon[0] + icon[2]) // 2, (icon[1] + icon[3]) // 2
    desktop.click(*middle)
    opened, menu = desktop.until_it_differs(closed)
    assert menu[0] <= middle[0] <= menu[2] and menu[3] > BAR
    assert demo.names() == ["needsUpdate", "willOpen"]
    desktop.press("Down", "Down", "Right")
    desktop.until_it_differs(opened)
    keep(desktop, "menu")
    desktop.press("Return")
    assert demo.event("chosen") == {"event": "chosen", "action": "renameServer", "object": "a"}
    assert demo.names() == ["needsUpdate", "willOpen", "didClose", "chosen"]

    desktop.point(WIDTH // 2, HEIGHT - 1)
    with_panel = desktop.picture(BAR)
    desktop.kill_panel()
    desktop.until_it_differs(with_panel, BAR)
    start_panel(desktop)
    eventually(lambda: desktop.picture(BAR).difference(busy) is None, 15, "the item's return")
    desktop.click(*middle)
    demo.event("willOpen", 2)
    row_height = 25
    desktop.until_it_differs(closed)
    desktop.click(middle[0], BAR + row_height // 2)
    assert demo.event("chosen", 2)["action"] == "openDesktopWindow"


def test_the_tray_works_on_the_panel_until_it_quits(desktop, world, start_tray):
    world.use_sandbox_agent()
    world.use_sandbox_tailnet()
    world.add_servers(2)
    for name in ("DISPLAY", "DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR"):
        world.environment[name] = desktop.environment[name]
    world.environment["ZEPHYL_SANDBOX_EMBED_RATE"] = "20"
    empty = start_panel(desktop)
    tray = start_tray("--desktop")
    item = Item(desktop.bus.peer(), "com.zephyl.tray", "/org/ayatana/NotificationItem/zephyl_tray")
    idle, icon = desktop.until_it_differs(empty, BAR)
    settled = "Zephyl: reachable, 1 folder, agent enrolled, 2 of 2 servers connected"
    eventually(lambda: item.get("Title") == settled, 20, "two servers")
    world.add_files(100)
    eventually(lambda: "busy" in item.get("IconName"), 20, "a busy agent")
    desktop.until_it_differs(idle, BAR)
    eventually(lambda: item.get("Title") == settled, 20, "an idle agent")
    eventually(lambda: desktop.picture(BAR).difference(idle) is None, 20, "the idle icon")

    closed = desktop.picture()
    desktop.click((icon[0] + icon[2]) // 2, BAR // 2)
    desktop.point(WIDTH // 2, HEIGHT - 1)
    opened = desktop.until_it_differs(closed)[0]
    desktop.press("Down", "Down", "Right")
    desktop.until_it_differs(opened)
    keep(desktop, "tray")
    desktop.press("Left", "Up", "Up", "Return")
    assert tray.wait() == 0
