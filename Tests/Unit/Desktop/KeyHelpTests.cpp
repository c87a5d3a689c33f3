#include "Desktop/Terminal/Views/KeyHelp.hpp"

#include <gtest/gtest.h>

#include "CanvasText.hpp"

namespace zephyl {
namespace {

std::string hints(int columns, std::size_t unseenLogLines, TerminalCapabilities capabilities = {}) {
  Canvas canvas({2, columns}, capabilities);
  keyHelp::draw(canvas, {0, 0, 1, columns}, unseenLogLines);
  return test::rowText(canvas, 0);
}

TEST(KeyHelp, NamesTheImportantKeysIfTheyFit) {
  EXPECT_EQ(hints(60, 0), "↑↓ move  Enter choose  l log  ? help  Ctrl-C quit");
  EXPECT_EQ(hints(60, 3), "↑↓ move  Enter choose  l log (3 new)  ? help  Ctrl-C quit");
}

TEST(KeyHelp, NamesTheHelpOnANarrowScreen) {
  EXPECT_EQ(hints(49, 0), "↑↓ move  Enter choose  l log  ? help  Ctrl-C quit");
  EXPECT_EQ(hints(48, 0), "? help  l log");
  EXPECT_EQ(hints(48, 12), "? help  l log (12 new)");
  EXPECT_EQ(hints(9, 0), "? help  …");
}

TEST(KeyHelp, TheAlertWasRequestedAndHasOneButton) {
  const Alert alert = keyHelp::alert({});
  EXPECT_TRUE(alert.requestedByUser);
  EXPECT_EQ(alert.buttons.size(), 1U);
  EXPECT_NE(alert.explanation.find("Home …"), std::string::npos);
}

TEST(KeyHelp, WithoutUnicodeItIsASCII) {
  TerminalCapabilities capabilities;
  capabilities.unicode = false;
  EXPECT_EQ(keyHelp::alert(capabilities).explanation.find("…"), std::string::npos);
}

}  // namespace
}  // namespace zephyl
