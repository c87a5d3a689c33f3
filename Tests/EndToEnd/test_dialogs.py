"""The windows on a private screen, operated by keyboard and through accessibility."""

import pathlib
import subprocess

import pytest

from support.dialogs import (APPROVAL, CONFIRMATION, DOWNLOAD, ERROR, HEIGHT, INVITE, PROGRAM,
                             WIDTH, WaylandScreen, Window)
from support.tray import eventually, is_alive

def excerpt(lines):
    """Returns the visible part of a log."""
    if len(lines) > 18:
        lines = lines[:6] + ["", "… TRUNCATED LINES …", ""] + lines[-12:]
    return "\n".join(lines) or "(no output yet)"


def log_window(count, message=""):
    lines = [f"line {number}" for number in range(1, count + 1)]
    return {"title": "Agent Exited Unexpectedly" if message else "Tailnet Logs", "message": message,
            "shownText": excerpt(lines), "fullText": "\n".join(lines), "requestedByUser": True}


# Alerts

def test_an_approval_is_denied_by_return(screen, show):
    window = show(alert=APPROVAL)
    screen.press("Return")
    assert window.answer() == {"button": 0, "text": ""}
    assert window.reports[-1] == {"hidden": True}


@pytest.mark.parametrize("keys", ["Escape", "alt+F4"])
def test_an_approval_is_denied_by_closing_it(screen, show, keys):
    window = show(alert=APPROVAL)
    screen.press("Tab")  # moves the focus to another button
    screen.press(keys)
    assert window.answer()["button"] == 0


@pytest.mark.parametrize("button", [0, 1, 2])
def test_an_approval_is_answered_by_keyboard(screen, show, button):
    window = show(alert=APPROVAL)
    screen.press(*["Tab"] * button, "space")
    assert window.answer()["button"] == button


@pytest.mark.parametrize("button", [0, 1, 2])
def test_an_approval_is_answered_by_a_screen_reader(show, button):
    window = show(alert=APPROVAL)
    window.accessible().find("push button", APPROVAL["buttons"][button]).press()
    assert window.answer()["button"] == button


def test_a_screen_reader_gets_the_question_and_the_focus(show):
    top = show(alert=APPROVAL).accessible()
    assert top.role == "dialog"
    assert top.name == APPROVAL["heading"]
    assert top.description == APPROVAL["explanation"]
    assert [each.text for each in top.all() if each.role == "text"] == [
        APPROVAL["heading"], APPROVAL["explanation"]]
    buttons = [each for each in top.all() if each.role == "push button"]
    assert [each.name for each in buttons] == APPROVAL["buttons"]
    assert buttons[0].has("focused")


@pytest.mark.parametrize("request_", [
    {"alert": APPROVAL}, {"alert": CONFIRMATION}, {"alert": INVITE}, {"alert": ERROR},
    {"logWindow": log_window(30, "It exited.")}], ids=["approval", "confirmation", "invite", "error", "log"])
def test_everything_that_takes_the_focus_has_a_name(show, request_):
    top = show(**request_).accessible()
    focusable = [each for each in top.all() if each.has("focusable")]
    assert len(focusable) >= 3
    assert all(each.name for each in focusable), [(each.role, each.name) for each in focusable]


def test_tab_goes_from_the_text_over_the_field_to_the_buttons(screen, show):
    top = show(alert=CONFIRMATION).accessible()

    def focused():
        return next((each.name for each in top.all() if each.has("focused") and each is not top), None)

    order = [eventually(focused)]
    for _ in range(4):
        before = order[-1]
        screen.press("Tab")
        order.append(eventually(lambda: focused() not in (None, before) and focused()))
    assert order == ["ALWAYS ALLOW", "Cancel", "Create permanent exception", "Message", "Details"]


def test_the_text_of_a_request_is_not_interpreted(show):
    hostile = ("<b>Ana</b> <a href='http://example.org'>link</a> &amp; &lt; **bold** \u202egnp.exe\n"
               "\x1b[31mred\x07\t\x00 pass\u200bwd \u2028 \U000e0041 \ufdd0 end")
    top = show(alert={**APPROVAL, "heading": "<i>Allow?</i>", "explanation": hostile,
                      "buttons": ["De&ny", "<b>Allow</b>"]}).accessible()
    message, details = [each.text for each in top.all() if each.role == "text"]
    assert message == "<i>Allow?</i>"
    first, second = details.split("\n")
    assert first == ("<b>Ana</b> <a href='http://example.org'>link</a> &amp; &lt; **bold** "
                     "\\u202egnp.exe")
    escaped = second
    for number, picture in {0x1b: "␛", 7: "␇", 9: "␉", 0: "␀"}.items():
        escaped = escaped.replace(picture, f"\\x{number:02x}")
    assert escaped == ("\\x1b[31mred\\x07\\x09\\x00 pass\\u200bwd \\u2028 \\U000e0041 \\ufdd0 end")
    assert [each.name for each in top.all() if each.role == "push button"] == ["De&ny", "<b>Allow</b>"]
    assert not [each for each in top.all() if each.role == "link"]


@pytest.mark.parametrize("target", ["/deep" * 2000, "x" * 30000, "word " * 5000, "\n" * 500,
                                    "a" * 1_000_000], ids=["path", "word", "words", "lines", "huge"])
def test_a_long_request_scrolls_and_stays_on_the_screen(screen, show, target):
    window = show(alert={**APPROVAL, "heading": "Allow? " * 200, "explanation": target})
    top = window.accessible()
    for each in [top, *(each for each in top.all() if each.role == "push button")]:
        left, upper, width, height = each.box()
        assert left >= 0 and upper >= 0 and left + width <= WIDTH and upper + height <= HEIGHT
    assert top.box()[2] < WIDTH / 2
    assert window.costs[0] < 3
    screen.press("Return")
    assert window.answer()["button"] == 0


def test_a_long_word_is_copied_unchanged(screen, show):
    word = "é" * 5000
    show(alert={**APPROVAL, "explanation": word})
    screen.press("shift+Tab", "ctrl+a", "ctrl+c")
    eventually(lambda: screen.clipboard() == word, what="the copied text")


def test_text_can_be_selected_and_copied(screen, show):
    window = show(alert=APPROVAL)
    screen.press("shift+Tab", "ctrl+a", "ctrl+c")
    eventually(lambda: screen.clipboard() == APPROVAL["explanation"], what="the copied text")
    screen.press("Escape")
    window.report("hidden")
    assert screen.clipboard() == APPROVAL["explanation"]


@pytest.mark.parametrize("typed", ["ALWAYS ALLOW", "  ALWAYS ALLOW ", "always allow", ""])
def test_the_confirmation_returns_the_typed_text(screen, show, typed):
    window = show(alert=CONFIRMATION)
    screen.type(typed)
    screen.press("Tab", "Tab", "space")
    assert window.answer() == {"button": 1, "text": typed}


def test_return_in_the_confirmation_cancels_whatever_was_typed(screen, show):
    window = show(alert=CONFIRMATION)
    screen.type("ALWAYS ALLOW")
    screen.press("Return")
    assert window.answer()["button"] == 0


def test_an_error_is_acknowledged_by_return_and_by_escape(screen, show):
    for key in ("Return", "Escape"):
        window = show(alert=ERROR)
        screen.press(key)
        assert window.answer()["button"] == 0


def test_an_invite_key_is_pasted_and_joined_by_return(screen, show):
    key = "inv_v2_00112233445566778899aabbccddeeff_secret"
    window = show(alert=INVITE)
    screen.copy(key + "\n")
    screen.press("ctrl+v", "Return")
    answer = window.answer()
    assert answer["button"] == 0
    assert answer["text"].strip() == key


def test_an_invite_is_cancelled_by_escape(screen, show):
    window = show(alert=INVITE)
    screen.type("inv")
    screen.press("Escape")
    assert window.answer()["button"] == 1


# Progress


def words_below(window):
    return [each.name for each in window.accessible().all() if each.role == "label"]


def test_a_bar_shows_the_progress_of_a_download(screen, show):
    window = show(alert=DOWNLOAD)
    bar = window.accessible().find("progress bar", "Progress")
    assert bar.description == "0.0 of 12.4 MB"
    assert words_below(window) == ["0.0 of 12.4 MB"]

    def blue():
        left, upper, width, height = bar.box()
        picture = screen.picture()
        row = picture.pixels[3 * ((upper + height // 2) * picture.width + left):][:3 * width]
        return sum(row[i + 2] > row[i] + 60 for i in range(0, len(row), 3)) / width

    assert blue() < 0.05
    for fraction, text in ((0.25, "3.1 of 12.4 MB"), (0.75, "9.3 of 12.4 MB")):
        window.send({"progress": {"fraction": fraction, "text": text}})
        eventually(lambda text=text: words_below(window) == [text], what=text)
        eventually(lambda fraction=fraction: abs(blue() - fraction) < 0.05, what="the bar")
        assert bar.description == text
    window.send({"progress": {"text": "Verifying…"}})
    eventually(lambda: words_below(window) == ["Verifying…"])
    screen.press("Return")
    assert window.answer()["button"] == 0


def test_escape_cancels_a_download(screen, show):
    window = show(alert=DOWNLOAD)
    screen.press("Escape")
    assert window.answer()["button"] == 0


@pytest.mark.parametrize("request_", [{"alert": ERROR}, {"logWindow": log_window(3)}],
                         ids=["alert", "log"])
def test_a_window_without_a_bar_ignores_progress(show, request_):
    window = show(**request_)
    window.send({"progress": {"fraction": 0.5, "text": "half"}})
    window.send({"something": "that came later"})
    window.send({"ping": 1})
    eventually(lambda: {"pong": 1} in window.reports)
    assert not [each for each in window.accessible().all() if each.role == "progress bar"]


def test_any_number_is_accepted_as_a_fraction(show):
    window = show(alert=DOWNLOAD)
    for fraction in (-1, 2, 1e300, 0.5):
        window.send({"progress": {"fraction": fraction, "text": "<b>" + str(fraction)}})
    eventually(lambda: words_below(window) == ["<b>0.5"])
    window.send({"close": True})
    assert window.ends() == 0


# Log windows

@pytest.mark.parametrize("count", [0, 18, 19, 200])
def test_a_log_is_shown_copied_and_closed(screen, show, count):
    request = log_window(count, "The Zephyl agent didn't start cleanly — it exited with code 3.")
    window = show(logWindow=request)
    top = window.accessible()
    assert top.name == "Agent Exited Unexpectedly"
    assert top.find("text", "Message").text == request["message"]
    assert top.find("text", "Log").text == request["shownText"]
    assert [each.name for each in top.all() if each.role == "label"] == ["Log:"]
    top.find("push button", "Copy Full Log").press()
    eventually(lambda: screen.clipboard() == request["fullText"], what="the copied log")
    screen.press("Return")
    assert window.report("logEvent") == "closed"
    window.report("hidden")
    assert screen.clipboard() == request["fullText"]


def test_a_log_window_has_its_size_and_can_be_resized(show):
    top = show(logWindow=log_window(200, "It exited.")).accessible()
    assert top.box()[2:] == (560, 380)
    left, upper, width, height = top.find("text", "Log").box()
    assert abs(width - 524) <= 20 and height >= 240  # within its frame and beside the scroll bar


def test_a_log_window_without_a_message_has_no_label(show):
    top = show(logWindow=log_window(5)).accessible()
    assert [each.name for each in top.all() if each.role == "text" and each.has("showing")] == ["Log"]


def test_an_editor_is_chosen_from_the_menu_and_the_window_stays(screen, show):
    window = show(logWindow=log_window(5))
    button = window.accessible().find("button menu", "Write to File & Open…")
    for place, event in enumerate(["openInCursor", "openInVSCode", "openInTextEdit"]):
        screen.click(button)
        eventually(lambda: screen.windows_of(window.process.pid) == 2, what="the menu")
        window.send({"ping": place})
        eventually(lambda: {"pong": place} in window.reports, what="a pong while the menu is open")
        screen.press(*["Down"] * (place + 1), "Return")
        eventually(lambda: {"logEvent": event} in window.reports, what=event)
    assert {"hidden": True} not in window.reports
    screen.press("Escape")
    assert window.ends() == 0
    assert [report["logEvent"] for report in window.reports if "logEvent" in report] == [
        "openInCursor", "openInVSCode", "openInTextEdit", "closed"]


def test_copied_text_stays_until_other_text_is_copied(screen, show):
    window = show(logWindow=log_window(3))
    window.accessible().find("push button", "Copy Full Log").press()
    eventually(lambda: screen.clipboard() == "line 1\nline 2\nline 3")
    window.send({"close": True})
    window.process.stdin.close()
    window.report("hidden")
    assert screen.clipboard() == "line 1\nline 2\nline 3"
    assert is_alive(window.process.pid)
    screen.copy("something else")
    assert window.ends() == 0


def test_a_log_window_that_was_not_copied_from_ends_at_once(screen, show):
    window = show(logWindow=log_window(3))
    screen.press("Escape")
    assert window.ends() == 0
    assert window.reports == [{"shown": True}, {"logEvent": "closed"}, {"hidden": True}]


# The folder picker

def test_a_folder_is_chosen_by_its_path(screen, show):
    folder = screen.home / "my project ü"
    folder.mkdir()
    window = show(folderPicker={"prompt": "Share", "message": "Choose a project folder."})
    top = window.accessible()
    assert top.description == "Choose a project folder."
    assert top.find("push button", "Share")
    screen.copy(str(folder))
    screen.press("ctrl+v", "Return")
    assert window.report("folder") == str(folder)
    assert window.ends() == 0


def test_a_folder_picker_is_cancelled_by_escape(screen, show):
    window = show(folderPicker={"prompt": "Share", "message": "Choose a project folder."})
    screen.press("Escape")
    assert window.report("folder") == ""
    assert window.ends() == 0


# The program

def test_a_ping_is_answered(show):
    window = show(alert=ERROR)
    for number in (1, 2, 3):
        window.send({"ping": number})
        eventually(lambda: {"pong": number} in window.reports)


@pytest.mark.parametrize("way", ["close", "end of input"])
@pytest.mark.parametrize("request_", [{"alert": APPROVAL}, {"logWindow": log_window(3)},
                                      {"folderPicker": {"prompt": "Share", "message": ""}}],
                         ids=["alert", "log", "folder"])
def test_the_tray_closes_a_window_without_an_answer(show, request_, way):
    window = show(**request_)
    if way == "close":
        window.send({"close": True})
    else:
        window.process.stdin.close()
    assert window.ends() == 0
    assert window.reports == [{"shown": True}, {"hidden": True}]


@pytest.mark.parametrize("line", [
    "", "garbage", "{}", '{"alert": {"buttons": []}}',
    '{"alert": {"style": "warning", "heading": "", "explanation": "", "buttons": [],'
    ' "safeButton": 0}}',
    '{"alert": {"style": "warning", "heading": "", "explanation": "", "buttons": ["OK"],'
    ' "safeButton": 1}}',
    '{"folderPicker": {"prompt": "", "message": ""}, "logWindow": {"title": "", "message": "",'
    ' "shownText": "", "fullText": ""}}'])
def test_an_invalid_request_is_refused(screen, line):
    result = subprocess.run([PROGRAM], env=screen.environment, input=line + "\n", text=True,
                            capture_output=True, timeout=10)
    assert result.returncode == 2
    assert result.stdout == ""
    assert result.stderr


@pytest.mark.parametrize("environment", [{"DISPLAY": ""}, {"DISPLAY": ":nothing"}],
                         ids=["no display", "a wrong display"])
def test_without_a_screen_it_fails_with_a_message(screen, environment):
    result = subprocess.run([PROGRAM], env={**screen.environment, **environment}, input="",
                            text=True, capture_output=True, timeout=10)
    assert result.returncode == 1
    assert result.stdout == ""
    assert "display" in result.stderr


def test_it_appears_soon(show):
    windows = [show(alert=APPROVAL) for _ in range(5)]
    for window in windows:
        window.report("shown")
    costs = [window.costs[0] for window in windows]
    assert sorted(costs)[2] < 0.3, costs


# Appearance

def test_it_is_dark_if_the_desktop_is(screen, show):
    def brightness():
        window = show(alert=ERROR)
        left, upper, width, height = window.accessible().box()
        picture = screen.picture()
        at = 3 * ((upper + height - 4) * picture.width + left + 4)
        window.send({"close": True})
        window.ends()
        return sum(picture.pixels[at:at + 3]) / 3

    light = brightness()
    peer = screen.prefer_dark()
    try:
        dark = brightness()
    finally:
        peer.close()
    assert light > 200 and dark < 80


def test_it_grows_with_the_scale_of_the_screen(show):
    boxes = []
    for scale in ("1", "2"):
        window = show({"QT_SCALE_FACTOR": scale}, alert=ERROR)
        boxes.append(window.screen.run("xdotool", "getwindowfocus", "getwindowgeometry", "--shell"))
    widths = [int(box.split("WIDTH=")[1].split()[0]) for box in boxes]
    assert abs(widths[1] - 2 * widths[0]) <= 2


def test_a_message_about_a_failure_is_red(screen, show):
    def red_pixels(message):
        window = show(logWindow=log_window(3, message))
        pixels = screen.picture().pixels
        window.send({"close": True})
        window.ends()
        return sum(pixels[i] > 150 and pixels[i + 1] < 80 and pixels[i + 2] < 90
                   for i in range(0, len(pixels), 3))

    assert red_pixels("") == 0
    assert red_pixels("The agent exited with code 3.") > 200


def test_on_wayland_it_is_a_wayland_program():
    symbol = []
    for scale in (1, 2):
        screen = WaylandScreen(scale)
        window = Window(screen, {"alert": APPROVAL})
        try:
            window.report("shown")
            libraries = pathlib.Path(f"/proc/{window.process.pid}/maps").read_text()
            assert "libqwayland" in libraries and "libqxcb.so" not in libraries
            symbol.append(eventually(screen.dark_red_pixels, what="the symbol on the screen"))
            window.send({"close": True})
            assert window.ends() == 0
        finally:
            window.close()
            screen.close()
    assert 3 < symbol[1] / symbol[0] < 5, symbol  # twice as wide and as high


def test_on_wayland_it_ends_with_its_window():
    """Qt 6.4 can wait for its own thread forever, in about one run of twenty."""
    screen = WaylandScreen(1)
    windows = []
    try:
        for _ in range(5):
            windows = [Window(screen, {"alert": ERROR}) for _ in range(8)]
            for window in windows:
                window.report("shown")
            for window in windows:
                window.send({"close": True})
            for window in windows:
                assert window.ends() == 0
                window.close()
    finally:
        for window in windows:
            window.close()
        screen.close()
