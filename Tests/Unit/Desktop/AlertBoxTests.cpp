#include "Desktop/Terminal/Views/AlertBox.hpp"

#include <gtest/gtest.h>

#include "CanvasText.hpp"

namespace zephyl {
namespace {

using Kind = Key::Kind;

Alert approval() {
  return {.style = Alert::Style::critical,
          .heading = "Allow access?",
          .explanation = "Command:\ncat /etc/passwd",
          .buttons = {"Deny", "Allow once", "Always…"},
          .permittingButtons = {1, 2}};
}

/// A text that does not fit on the screen.
Alert longApproval() {
  Alert alert = approval();
  for (int i = 0; i < 30; ++i) alert.explanation += "\nline " + std::to_string(i);
  return alert;
}

Alert question() {
  return {.heading = "Join",
          .explanation = "Paste the key.",
          .buttons = {"Join", "Cancel"},
          .safeButton = 1,
          .textField = Alert::TextField{.placeholder = "inv_v2_…"}};
}

std::string drawn(AlertBox& box, int rows = 12, int columns = 50,
                  TerminalCapabilities capabilities = {}) {
  Canvas canvas({rows, columns}, capabilities);
  box.draw(canvas);
  return test::canvasText(canvas);
}

std::optional<AlertAnswer> press(AlertBox& box, Kind kind) {
  return box.handle({.kind = kind});
}

void type(AlertBox& box, const std::string& text) {
  for (const char letter : text) EXPECT_FALSE(box.handle({.text = std::string(1, letter)}));
}

TEST(AlertBox, ShowsTheQuestionWithTheFirstButtonMarked) {
  AlertBox box(approval(), {});
  EXPECT_EQ(drawn(box),
            "\n\n"
            "  ┌────────────────────────────────────────────┐\n"
            "  │ Allow access?                              │\n"
            "  │                                            │\n"
            "  │ Command:                                   │\n"
            "  │ cat /etc/passwd                            │\n"
            "  │                                            │\n"
            "  │ [›Deny ]  [ Allow once ]  [ Always… ]      │\n"
            "  └────────────────────────────────────────────┘");
}

TEST(AlertBox, FitsOnTheSmallestScreen) {
  AlertBox box({.heading = "Create it?",
                .explanation = "This permanently allows:\n\n/etc",
                .buttons = {"Cancel", "Create permanent exception"},
                .textField = Alert::TextField{.placeholder = "ALWAYS ALLOW"}},
               {});
  EXPECT_EQ(drawn(box, 7, 30),
            "┌────────────────────────────┐\n"
            "│ Create it?                 │\n"
            "│ This permanently allows: ↓ │\n"
            "│ › ALWAYS ALLOW             │\n"
            "│ [›Cancel ]                 │\n"
            "│ [ Create permanent exce… ] │\n"
            "└────────────────────────────");
}

Alert download() {
  return {.heading = "Downloading…",
          .explanation = "It is verified.",
          .buttons = {"Cancel"},
          .progress = Progress{.fraction = 0.25, .text = "3.1 of 12.4 MB"}};
}

TEST(AlertBox, ShowsProgress) {
  AlertBox box(download(), {});
  EXPECT_EQ(drawn(box),
            "\n"
            "  ┌────────────────────────────────────────────┐\n"
            "  │ Downloading…                               │\n"
            "  │                                            │\n"
            "  │ It is verified.                            │\n"
            "  │                                            │\n"
            "  │ ██████░░░░░░░░░░░░░░░░░░░░░ 3.1 of 12.4 MB │\n"
            "  │                                            │\n"
            "  │ [›Cancel ]                                 │\n"
            "  └────────────────────────────────────────────┘");
  box.showProgress({.fraction = 7, .text = "12.4 of 12.4 MB"});
  EXPECT_NE(drawn(box).find("│ ██████████████████████████ 12.4 of 12.4 MB │"), std::string::npos);
  box.showProgress({.text = "Verifying…\x1b"});
  EXPECT_NE(drawn(box).find("│ Verifying…␛ "), std::string::npos);
  EXPECT_EQ(drawn(box).find("░"), std::string::npos) << "unmeasured progress has no bar";
}

TEST(AlertBox, ShowsProgressInASCIIAndWithoutABarOnNarrowScreens) {
  AlertBox box(download(), {.unicode = false});
  EXPECT_NE(drawn(box, 12, 50, {.unicode = false}).find("| ######..................... 3.1 of"),
            std::string::npos)
      << drawn(box, 12, 50, {.unicode = false});
  EXPECT_NE(drawn(box, 12, 24, {.unicode = false}).find("| 3.1 of 12.4 MB"), std::string::npos);
}

TEST(AlertBox, HasNoBarUnlessRequested) {
  AlertBox box(approval(), {});
  const auto before = drawn(box);
  box.showProgress({.fraction = 0.5, .text = "half"});
  EXPECT_EQ(drawn(box), before);
}

TEST(AlertBox, EnterChoosesTheMarkedButtonAndEscapeTheSafeOne) {
  AlertBox box(approval(), {});
  drawn(box);
  EXPECT_EQ(press(box, Kind::enter), (AlertAnswer{.button = 0}));
  press(box, Kind::tab);
  EXPECT_EQ(press(box, Kind::enter), (AlertAnswer{.button = 1}));
  press(box, Kind::tab);
  EXPECT_EQ(box.handle({.text = " "}), (AlertAnswer{.button = 2}));
  EXPECT_EQ(press(box, Kind::escape), (AlertAnswer{.button = 0}));
  press(box, Kind::tab);
  press(box, Kind::backTab);
  press(box, Kind::backTab);
  EXPECT_EQ(press(box, Kind::enter), (AlertAnswer{.button = 1}));
}

TEST(AlertBox, ArrowsNeverReachAButtonThatPermitsSomething) {
  AlertBox box(approval(), {});
  drawn(box);
  for (const auto kind : {Kind::right, Kind::left, Kind::right, Kind::right}) {
    press(box, kind);
    EXPECT_EQ(press(box, Kind::enter), (AlertAnswer{.button = 0}));
  }
  press(box, Kind::tab);
  press(box, Kind::right);
  EXPECT_EQ(press(box, Kind::enter), (AlertAnswer{.button = 0})) << "keys can leave such a button";
  AlertBox other(question(), {});
  drawn(other);
  press(other, Kind::tab);
  press(other, Kind::right);
  EXPECT_EQ(press(other, Kind::enter), (AlertAnswer{.button = 1}))
      << "an alert without a permitting button";
}

TEST(AlertBox, PermitsNothingUntilTheEndOfTheTextWasOnScreen) {
  AlertBox box(longApproval(), {});
  const auto tryToPermit = [&box] {
    std::vector<std::size_t> pressed;
    for (int i = 0; i < 3; ++i) {
      if (const auto answer = press(box, Kind::enter)) pressed.push_back(answer->button);
      press(box, Kind::tab);
    }
    return pressed;
  };
  EXPECT_NE(drawn(box).find("Scroll to the end (↓) to allow"), std::string::npos);
  EXPECT_EQ(tryToPermit(), (std::vector<std::size_t>{0, 0, 0}));
  EXPECT_FALSE(box.handle({.kind = Kind::press, .row = 10, .column = 18})) << drawn(box);
  press(box, Kind::pageDown);
  drawn(box);
  EXPECT_EQ(tryToPermit(), (std::vector<std::size_t>{0, 0, 0}));
  press(box, Kind::end);
  EXPECT_EQ(drawn(box).find("Scroll to"), std::string::npos);
  EXPECT_EQ(tryToPermit(), (std::vector<std::size_t>{0, 1, 2}));
  EXPECT_TRUE(box.handle({.kind = Kind::press, .row = 10, .column = 18})) << drawn(box);
}

TEST(AlertBox, PermitsNothingThatDoesNotFitOnTheScreen) {
  AlertBox box(approval(), {});
  for (int rows = 0; rows < 5; ++rows) {
    drawn(box, rows, 50);
    press(box, Kind::end);
    drawn(box, rows, 50);
    press(box, Kind::tab);
    EXPECT_EQ(press(box, Kind::enter), (AlertAnswer{.button = 0})) << rows;
  }
  drawn(box, 6, 50);
  press(box, Kind::tab);
  EXPECT_EQ(press(box, Kind::enter), (AlertAnswer{.button = 1}));
}

TEST(AlertBox, MarksNoButtonWhileItAcceptsNoInput) {
  AlertBox box(approval(), {});
  Canvas canvas({12, 50}, {});
  box.draw(canvas, /*mayAnswer=*/false);
  EXPECT_NE(test::canvasText(canvas).find("[ Deny ]  [ Allow once ]  [ Always… ]"),
            std::string::npos);
}

TEST(AlertBox, IgnoresInputWhileItIsGuarded) {
  AlertBox box(approval(), {});
  drawn(box);
  for (const auto kind : {Kind::enter, Kind::escape}) {
    EXPECT_FALSE(box.handle({.kind = kind}, false));
  }
  EXPECT_FALSE(box.handle({.text = " "}, false));
  EXPECT_FALSE(box.handle({.kind = Kind::press, .row = 8, .column = 6}, false));
  EXPECT_TRUE(box.handle({.kind = Kind::press, .row = 8, .column = 6}, true));
}

TEST(AlertBox, TheTextFieldHasTheFocusAtFirst) {
  AlertBox box(question(), {});
  EXPECT_NE(drawn(box).find("› inv_v2_…"), std::string::npos);
  type(box, "key 1");
  EXPECT_NE(drawn(box).find("› key 1"), std::string::npos);
  EXPECT_EQ(press(box, Kind::enter), (AlertAnswer{.button = 0, .text = "key 1"}));
  EXPECT_EQ(press(box, Kind::escape), (AlertAnswer{.button = 1, .text = "key 1"}));
  press(box, Kind::tab);
  press(box, Kind::tab);
  EXPECT_EQ(press(box, Kind::enter), (AlertAnswer{.button = 1, .text = "key 1"}));
}

TEST(AlertBox, TheMouseChoosesAButton) {
  AlertBox box(approval(), {});
  drawn(box);
  EXPECT_EQ(box.handle({.kind = Kind::press, .row = 8, .column = 18}), (AlertAnswer{.button = 1}));
  EXPECT_FALSE(box.handle({.kind = Kind::press, .row = 5, .column = 18}));
}

TEST(AlertBox, ALongTextScrollsAndTheButtonsStayVisible) {
  Alert alert = approval();
  alert.explanation = "";
  for (int i = 0; i < 30; ++i) alert.explanation += "line " + std::to_string(i) + "\n";
  AlertBox box(alert, {});
  auto text = drawn(box);
  EXPECT_NE(text.find("line 0"), std::string::npos);
  EXPECT_NE(text.find("↓"), std::string::npos);
  EXPECT_NE(text.find("[›Deny ]"), std::string::npos);
  press(box, Kind::end);
  text = drawn(box);
  EXPECT_NE(text.find("line 29"), std::string::npos);
  EXPECT_NE(text.find("[›Deny ]"), std::string::npos);
}

TEST(AlertBox, StacksItsButtonsWhereTheyDoNotFitSideBySide) {
  AlertBox box(approval(), {});
  const auto text = drawn(box, 14, 26);
  EXPECT_NE(text.find("[›Deny ]"), std::string::npos);
  EXPECT_NE(text.find("\n│ [ Allow once ]"), std::string::npos);
  EXPECT_NE(text.find("\n│ [ Always… ]"), std::string::npos);
}

TEST(AlertBox, DropsMarginsBeforeText) {
  AlertBox box(approval(), {});
  EXPECT_EQ(drawn(box, 6, 50),
            "  ┌────────────────────────────────────────────┐\n"
            "  │ Allow access?                              │\n"
            "  │ Command:                                   │\n"
            "  │ cat /etc/passwd                            │\n"
            "  │ [›Deny ]  [ Allow once ]  [ Always… ]      │\n"
            "  └────────────────────────────────────────────┘");
}

TEST(AlertBox, MakesHiddenCharactersVisible) {
  Alert alert = approval();
  alert.explanation = "cat \x1b[2J\u202e/etc";
  AlertBox box(alert, {});
  EXPECT_NE(drawn(box).find("cat ␛[2J\\u202e/etc"), std::string::npos);
}

TEST(AlertBox, DrawsOnAnyScreen) {
  for (int rows = 0; rows < 12; ++rows) {
    for (int columns = 0; columns < 40; columns += 3) {
      AlertBox box(question(), {});
      drawn(box, rows, columns);
      EXPECT_EQ(press(box, Kind::escape), (AlertAnswer{.button = 1}));
    }
  }
}

TEST(TextField, IsEditedAsInAShell) {
  TextField field("");
  field.setText("one two");
  field.handle({.kind = Kind::control, .text = "w"});
  EXPECT_EQ(field.text(), "one ");
  field.handle({.kind = Kind::control, .text = "a"});
  field.handle({.text = "é"});
  EXPECT_EQ(field.text(), "éone ");
  field.handle({.kind = Kind::backspace});
  field.handle({.kind = Kind::remove});
  EXPECT_EQ(field.text(), "ne ");
  field.handle({.kind = Kind::end});
  field.handle({.kind = Kind::left});
  field.handle({.kind = Kind::control, .text = "k"});
  EXPECT_EQ(field.text(), "ne");
  field.handle({.kind = Kind::control, .text = "u"});
  EXPECT_EQ(field.text(), "");
  EXPECT_FALSE(field.handle({.kind = Kind::up}));
}

TEST(TextField, DropsControlCharactersFromPastedText) {
  TextField field("");
  field.handle({.kind = Kind::paste, .text = "inv_v2_\r\nabc\x1b"});
  EXPECT_EQ(field.text(), "inv_v2_abc");
}

TEST(TextField, ShowsThePartAroundTheCursor) {
  TextField field("");
  field.setText("0123456789");
  Canvas canvas({2, 20}, {});
  field.draw(canvas, {0, 2, 1, 5}, true);
  EXPECT_EQ(test::rowText(canvas, 0), "  6789");
  EXPECT_EQ(canvas.cursor(), (CursorPosition{0, 6}));
}

}  // namespace
}  // namespace zephyl
