"""The properties of windows for window managers and task bars."""

import configparser
import re

import pytest

from support.dialogs import APPROVAL, CONFIRMATION, DOWNLOAD, HEIGHT, INVITE, WIDTH, Window
from support.tray import REPOSITORY, eventually

LOG = {"title": "Tailnet Logs", "message": "", "shownText": "one", "fullText": "one",
       "requestedByUser": True}
FOLDER = {"prompt": "Share", "message": "Choose a project folder to share with this Zephyl."}
HEBREW = "/שלום/etc/passwd"
LONG = {**APPROVAL, "explanation": "Command:\n" + "\n".join(f"line {n}" for n in range(200))}


def property_of(screen, window, name):
    number = eventually(lambda: screen.window_ids(window.process.pid), what="a window")[0]
    return screen.run("xprop", "-id", number, name)


@pytest.mark.parametrize("request_", [{"alert": APPROVAL}, {"logWindow": LOG}], ids=["alert", "log"])
def test_a_window_belongs_to_the_desktop_entry_and_has_the_icon(screen, show, request_):
    entry = configparser.ConfigParser(interpolation=None)
    entry.read(REPOSITORY / "Packaging" / "com.zephyl.tray.desktop")
    window = show(**request_)
    assert f'"{entry["Desktop Entry"]["StartupWMClass"]}"' in property_of(screen, window, "WM_CLASS")
    sizes = re.findall(r"Icon \((\d+) x (\d+)\)", property_of(screen, window, "_NET_WM_ICON"))
    assert {("16", "16"), ("48", "48"), ("128", "128")} <= set(sizes)


@pytest.mark.parametrize("alert", [APPROVAL, INVITE, LONG], ids=["approval", "invite", "long"])
def test_an_alert_has_a_fixed_width_so_that_it_is_not_tiled(screen, show, alert):
    hints = property_of(screen, show(alert=alert), "WM_NORMAL_HINTS")
    least, = re.findall(r"minimum size: (\d+) by", hints)
    most, = re.findall(r"maximum size: (\d+) by", hints)
    assert least == most


def test_a_log_can_be_resized(screen, show):
    assert "maximum size" not in property_of(screen, show(logWindow=LOG), "WM_NORMAL_HINTS")


@pytest.mark.parametrize("request_", [
    {"alert": LONG}, {"alert": CONFIRMATION}, {"alert": DOWNLOAD}, {"folderPicker": FOLDER},
    {"logWindow": {**LOG, "message": "The agent exited with code 3.\n" * 20}}],
    ids=["long", "confirmation", "download", "folder", "log"])
def test_a_window_fits_on_a_screen_with_few_large_pixels(screen, show, request_):
    window = show({"QT_SCALE_FACTOR": "2.5"}, **request_)
    number = eventually(lambda: screen.window_ids(window.process.pid), what="a window")[0]
    shape = dict(line.split("=") for line in
                 screen.run("xdotool", "getwindowgeometry", "--shell", number).split())
    assert int(shape["WIDTH"]) < WIDTH and int(shape["HEIGHT"]) < HEIGHT, shape


@pytest.mark.parametrize(("request_", "name"), [
    ({"alert": {**APPROVAL, "heading": HEBREW}}, "Message"),
    ({"alert": {**APPROVAL, "explanation": HEBREW}}, "Details"),
    ({"logWindow": {**LOG, "message": HEBREW}}, "Message"),
    ({"logWindow": {**LOG, "shownText": HEBREW}}, "Log")],
    ids=["heading", "explanation", "message", "log"])
def test_a_path_with_a_hebrew_name_is_read_from_left_to_right(show, request_, name):
    text = show(**request_).accessible().find("text", name)
    edges = eventually(lambda: [text.left_of(part) for part in ("שלום", "etc", "passwd")],
                       what="a text")
    assert edges == sorted(edges), edges


def test_a_window_is_not_mirrored_in_a_right_to_left_language(screen):
    """Some desktops translate the toolkit, which mirrors windows then. The texts are English."""
    window = Window(screen, {"alert": APPROVAL}, ["-reverse"])
    try:
        top = window.shown().accessible()
        icon = next(each for each in top.all() if each.name == "Critical")
        assert icon.box()[0] < top.find("text", "Message").box()[0]
    finally:
        window.close()


def scroll_bars(window):
    return [each for each in window.all() if each.role == "scroll bar" and each.has("showing")]


@pytest.mark.parametrize("scale", ["1", "1.25", "1.5", "1.75", "2"])
@pytest.mark.parametrize("alert", [APPROVAL, INVITE], ids=["approval", "invite"])
def test_a_text_that_fits_is_shown_whole_at_any_scale(screen, show, scale, alert):
    window = show({"QT_SCALE_FACTOR": scale}, alert=alert).accessible()
    for button in alert["buttons"]:  # one that permits something waits for the end of the text
        eventually(lambda button=button: window.find("push button", button).has("enabled"),
                   what=f"an enabled button {button!r}")
    assert not scroll_bars(window)


def test_a_text_that_does_not_fit_has_a_scroll_bar(show):
    """Shows that the test above can fail."""
    assert len(scroll_bars(show(alert=LONG).accessible())) == 1
