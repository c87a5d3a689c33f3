"""The item's properties for panels with peculiarities."""

import pytest

from support.desktop_fixtures import bus, start_demo  # noqa: F401
from support.panel_program import PanelProgram
from support.session_bus import rows
from support.status_item_demo import SAMPLE
from support.tray import BUILD, eventually

WORDS = "reachable, <b> & co"


@pytest.fixture
def start_panel(bus):
    panels = []

    def start(name):
        panels.append(PanelProgram(bus, name))
        return panels[-1]

    yield start
    for panel in panels:
        panel.close()


@pytest.fixture
def item_in(start_panel, start_demo):
    """Starts an item with a state in words for a panel of this name."""
    def item(name, **environment):
        demo = start_demo(**environment)
        demo.do("description", text=WORDS)
        item = start_panel(name).item()
        eventually(lambda: item.get("IconAccessibleDesc") == f"Zephyl: {WORDS}")
        return item
    return item


def test_a_panel_that_shows_only_titles_gets_the_state_in_the_title(item_in):
    assert item_in("lxqt-panel").get("ToolTip") == ("", [], "Zephyl: reachable, ‹b› + co", "")


def test_a_panel_that_does_not_recolor_icons_gets_outlined_pixmaps(item_in):
    item = item_in("waybar")
    assert item.get("IconName") == ""
    assert item.get("IconPixmap") != []


def test_a_panel_that_finds_only_installed_icons_gets_pixmaps(item_in):
    item = item_in("xapp-sn-watcher")
    assert item.get("IconThemePath") != ""
    assert item.get("IconName") == ""
    assert item.get("IconPixmap") != []


def test_such_a_panel_gets_the_name_of_an_installed_icon(item_in, tmp_path):
    (tmp_path / "icons").symlink_to(BUILD / "icons")
    item = item_in("xapp-sn-watcher", XDG_DATA_DIRS=str(tmp_path))
    assert item.get("IconThemePath") == ""
    assert item.get("IconName") == "com.zephyl.tray-idle-symbolic"


def test_other_panels_get_name_and_text(item_in):
    item = item_in("xfce4-panel")
    assert item.get("IconName") == "com.zephyl.tray-idle-symbolic"
    assert item.get("ToolTip") == ("", [], "Zephyl", "reachable, &lt;b&gt; &amp; co")


@pytest.mark.parametrize("font, label", [
    ("truetype/NotoColorEmoji.ttf", "🟢 Lab__1"), ("google-noto-emoji-fonts/Color.ttf", "🟢 Lab__1"),
    ("truetype/DejaVuSans.ttf", "Lab__1 — connected")])
def test_gnome_has_the_state_in_words_unless_circles_have_colors(bus, start_demo, start_panel,
                                                                  tmp_path, font, label):
    path = tmp_path / "fonts" / font
    path.parent.mkdir(parents=True)
    path.touch()
    shell = bus.peer()
    shell.own("org.gnome.Shell")
    start_demo(SAMPLE, XDG_DATA_DIRS=str(tmp_path))
    item = start_panel("gnome-shell").item()
    item.peer = shell
    labels = [properties.get("label") for _, properties, _ in rows(item.layout())]
    assert label in labels
