#include "Desktop/Terminal/Views/MenuView.hpp"

#include <gtest/gtest.h>

#include "CanvasText.hpp"

namespace zephyl {
namespace {

using Kind = Key::Kind;

MenuEntry command(const std::string& key) {
  return {.key = key, .title = key, .action = MenuAction(key)};
}

MenuEntry information(const std::string& key) {
  return {.key = key, .title = key, .enabled = false};
}

MenuEntry separator(const std::string& key) {
  return {.key = key, .kind = MenuEntry::Kind::separator};
}

MenuEntry server(const std::string& key) {
  return {.key = key,
          .title = key,
          .dot = DotColor::green,
          .submenu = {information("state of " + key), command("restart " + key)}};
}

Menu usualMenu() {
  auto open = command("open");
  open.shortcut = "o";
  return {open, separator("-"), server("hill"), server("mill"), separator("="), command("quit")};
}

class MenuViewTest : public ::testing::Test {
 protected:
  MenuViewTest() { view_.setMenu(usualMenu()); }

  MenuView::Outcome press(Kind kind) { return view_.handle({.kind = kind}); }
  MenuView::Outcome type(const char* text) { return view_.handle({.text = text}); }

  std::string drawn(int rows = 12, int columns = 30, TerminalCapabilities capabilities = {}) {
    Canvas canvas({rows + 1, columns}, capabilities);
    view_.draw(canvas, {0, 0, rows, columns});
    return test::canvasText(canvas);
  }

  /// Returns the row that Enter would choose.
  std::string chosen() {
    const auto text = drawn();
    const auto mark = text.find("›");
    if (mark == std::string::npos) return "none";
    const auto begin = text.find_first_not_of("› ●", mark);
    return text.substr(begin, text.find_first_of(" \n", begin) - begin);
  }

  MenuView view_;
};

TEST_F(MenuViewTest, ListsRowsWithMarksForSubmenusAndKeys) {
  EXPECT_EQ(drawn(),
            "› open                 Ctrl-O\n"
            "  ──────────────────────────\n"
            "  ● hill ▸\n"
            "  ● mill ▸\n"
            "  ──────────────────────────\n"
            "  quit");
}

TEST_F(MenuViewTest, SelectsOnlyEnabledRows) {
  EXPECT_EQ(chosen(), "open");
  press(Kind::down);
  EXPECT_EQ(chosen(), "hill");
  press(Kind::right);
  press(Kind::down);
  EXPECT_EQ(chosen(), "restart");
  press(Kind::end);
  EXPECT_EQ(chosen(), "quit");
  press(Kind::down);
  EXPECT_EQ(chosen(), "quit");
  press(Kind::home);
  press(Kind::up);
  EXPECT_EQ(chosen(), "open");
}

TEST_F(MenuViewTest, OpensASubmenuInPlaceAndClosesItFromInside) {
  press(Kind::down);
  EXPECT_TRUE(press(Kind::enter).opened);
  EXPECT_EQ(drawn(),
            "  open                 Ctrl-O\n"
            "  ──────────────────────────\n"
            "› ● hill ▾\n"
            "     state of hill\n"
            "     restart hill\n"
            "  ● mill ▸\n"
            "  ──────────────────────────\n"
            "  quit");
  press(Kind::down);
  EXPECT_EQ(press(Kind::enter).chosen, (MenuAction(std::string("restart hill"))));
  press(Kind::escape);
  EXPECT_EQ(chosen(), "hill");
  EXPECT_EQ(drawn().find("restart"), std::string::npos);
}

TEST_F(MenuViewTest, RunsAnEntryByItsKeyEquivalent) {
  EXPECT_EQ(view_.handle({.kind = Kind::control, .text = "o"}).chosen,
            (MenuAction(std::string("open"))));
  EXPECT_FALSE(view_.handle({.kind = Kind::control, .text = "x"}).handled);
  EXPECT_FALSE(type("o").handled);
}

TEST_F(MenuViewTest, KeepsItsSelectionWhenTheMenuChanges) {
  press(Kind::down);
  press(Kind::enter);
  auto menu = usualMenu();
  menu.insert(menu.begin(), command("approvals"));
  menu[3].title = "Hill House";
  view_.setMenu(menu);
  EXPECT_EQ(drawn(),
            "  approvals\n"
            "  open                 Ctrl-O\n"
            "  ──────────────────────────\n"
            "› ● Hill House ▾\n"
            "     state of hill\n"
            "     restart hill\n"
            "  ● mill ▸\n"
            "  ──────────────────────────\n"
            "  quit");
}

TEST_F(MenuViewTest, SelectsNothingIfTheSelectedRowDisappears) {
  press(Kind::down);
  auto menu = usualMenu();
  menu.erase(menu.begin() + 2);
  view_.setMenu(menu);
  EXPECT_EQ(chosen(), "none");
  EXPECT_FALSE(press(Kind::enter).chosen);
  EXPECT_FALSE(press(Kind::enter).opened);
  press(Kind::down);
  EXPECT_EQ(chosen(), "mill");
}

TEST_F(MenuViewTest, ASubmenuThatReappearsIsClosed) {
  press(Kind::down);
  press(Kind::enter);
  view_.setMenu({command("open")});
  view_.setMenu(usualMenu());
  EXPECT_EQ(drawn().find("restart"), std::string::npos);
}

TEST_F(MenuViewTest, ASubmenuThatReappearsIsClosedWhileAnotherStaysOpen) {
  press(Kind::down);
  press(Kind::enter);
  while (chosen() != "mill") press(Kind::down);
  press(Kind::enter);
  ASSERT_NE(drawn().find("restart hill"), std::string::npos);
  view_.setMenu({command("open"), server("mill")});
  view_.setMenu(usualMenu());
  EXPECT_EQ(drawn().find("restart hill"), std::string::npos);
  EXPECT_NE(drawn().find("restart mill"), std::string::npos);
}

TEST_F(MenuViewTest, ScrollsAndIndicatesHiddenRows) {
  Menu menu{information("first")};
  for (int i = 0; i < 20; ++i) menu.push_back(command("row" + std::to_string(i)));
  menu.push_back(information("last"));
  view_.setMenu(menu);
  press(Kind::home);
  EXPECT_EQ(drawn(3, 12), "  first\n› row0\n  row1     ↓");
  press(Kind::down);
  press(Kind::down);
  EXPECT_EQ(drawn(3, 12), "  row0     ↑\n  row1\n› row2     ↓");
  press(Kind::end);
  EXPECT_EQ(drawn(3, 12), "  row18    ↑\n› row19\n  last");
  press(Kind::home);
  EXPECT_EQ(drawn(3, 12), "  first\n› row0\n  row1     ↓");
}

TEST_F(MenuViewTest, WrapsALongTitle) {
  view_.setMenu({{.key = "x", .title = "Folders here aren't shared with it", .enabled = false}});
  EXPECT_EQ(drawn(4, 20), "  Folders here\n  aren't shared with\n  it");
}

TEST_F(MenuViewTest, ShowsTheStateByShapesWithoutColors) {
  Menu menu;
  for (const auto dot : {DotColor::green, DotColor::orange, DotColor::red, DotColor::grey}) {
    menu.push_back(
        {.key = std::to_string(menu.size()), .title = "s", .dot = dot, .enabled = false});
  }
  view_.setMenu(menu);
  EXPECT_EQ(drawn(4, 20, {.colors = false}), "  ● s\n  ◐ s\n  ✗ s\n  ○ s");
  EXPECT_EQ(drawn(4, 20, {.unicode = false, .colors = false}), "  * s\n  ~ s\n  x s\n  o s");
}

TEST_F(MenuViewTest, HandlesTheMouse) {
  drawn();
  EXPECT_TRUE(view_.handle({.kind = Kind::press, .row = 2, .column = 5}).opened);
  drawn();
  EXPECT_FALSE(view_.handle({.kind = Kind::press, .row = 3, .column = 8}).chosen);
  EXPECT_EQ(view_.handle({.kind = Kind::press, .row = 4, .column = 8}).chosen,
            (MenuAction(std::string("restart hill"))));
  EXPECT_FALSE(view_.handle({.kind = Kind::press, .row = 40, .column = 8}).handled);
}

TEST_F(MenuViewTest, AnEmptyMenuAcceptsAnyKey) {
  view_.setMenu({});
  for (const auto kind : {Kind::up, Kind::down, Kind::home, Kind::end, Kind::enter, Kind::escape,
                          Kind::pageDown, Kind::right, Kind::left}) {
    EXPECT_FALSE(press(kind).chosen);
  }
  EXPECT_EQ(drawn(), "");
}

}  // namespace
}  // namespace zephyl
