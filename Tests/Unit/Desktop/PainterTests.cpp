#include "Desktop/Terminal/Drawing/Painter.hpp"

#include <gtest/gtest.h>

#include "CanvasText.hpp"

namespace zephyl {
namespace {

using test::rowText;

TEST(Canvas, ClipsAtItsEdges) {
  Canvas canvas({2, 6}, {});
  EXPECT_EQ(canvas.put(0, 3, "abcdef"), 6);
  canvas.put(5, 0, "below");
  canvas.put(-1, 0, "above");
  EXPECT_EQ(rowText(canvas, 0), "   abc");
  EXPECT_EQ(rowText(canvas, 1), "");
}

TEST(Canvas, KeepsTheLastCellEmptySoThatNothingScrolls) {
  Canvas canvas({2, 4}, {});
  canvas.put(1, 0, "abcd");
  EXPECT_EQ(rowText(canvas, 1), "abc");
}

TEST(Canvas, NeverShowsHalfACharacter) {
  Canvas canvas({1, 8}, {});
  canvas.put(0, 0, "日本");
  canvas.put(0, 1, "x");
  EXPECT_EQ(rowText(canvas, 0), " x本");
  canvas.put(0, 2, "y");
  EXPECT_EQ(rowText(canvas, 0), " xy");
  EXPECT_EQ(canvas.putWithin(0, 0, 3, "日本"), 2);
}

class PainterTest : public ::testing::Test {
 protected:
  TerminalType type_ = *TerminalType::load("xterm-256color", true);
  Painter painter_{type_};
  Canvas canvas_{{10, 40}, {}};
};

TEST_F(PainterTest, WritesNothingWhenNothingChanged) {
  canvas_.put(0, 0, "menu");
  EXPECT_NE(painter_.paint(canvas_), "");
  EXPECT_EQ(painter_.paint(canvas_), "");
}

TEST_F(PainterTest, WritesOnlyWhatChanged) {
  canvas_.put(3, 5, "indexing 41/312");
  canvas_.put(7, 0, "something else");
  painter_.paint(canvas_);
  canvas_.put(3, 5, "indexing 42/312");
  EXPECT_EQ(painter_.paint(canvas_), type_.moveTo(3, 15) + type_.style({}) + "2");
}

TEST_F(PainterTest, RewritesAShortUnchangedStretchInsteadOfJumping) {
  canvas_.put(3, 5, "a..b.......c");
  painter_.paint(canvas_);
  canvas_.put(3, 5, "1..2.......3");
  EXPECT_EQ(painter_.paint(canvas_),
            type_.moveTo(3, 5) + type_.style({}) + "1..2" + type_.moveTo(3, 16) + "3");
}

TEST_F(PainterTest, SetsAndResetsStyles) {
  const CellStyle bold{.bold = true};
  painter_.paint(canvas_);
  canvas_.put(0, 0, "a", bold);
  EXPECT_EQ(painter_.paint(canvas_),
            type_.moveTo(0, 0) + type_.style(bold) + "a" + type_.style({}));
}

TEST_F(PainterTest, PaintsTheWholeScreenIfItIsUnknownOrHasAnotherSize) {
  canvas_.put(0, 0, "menu");
  painter_.paint(canvas_);
  painter_.forget();
  EXPECT_NE(std::string_view(painter_.paint(canvas_)).find(type_.clear()), std::string::npos);
  EXPECT_NE(std::string_view(painter_.paint(Canvas({5, 20}, {}))).find(type_.clear()),
            std::string::npos);
}

TEST_F(PainterTest, ShowsTheCursorAtItsPosition) {
  painter_.paint(canvas_);
  canvas_.setCursor({2, 3});
  EXPECT_EQ(painter_.paint(canvas_), type_.moveTo(2, 3) + type_.showCursor());
  canvas_.hideCursor();
  EXPECT_EQ(painter_.paint(canvas_), type_.hideCursor());
}

TEST(TerminalType, RefusesATerminalThatCannotShowAMenu) {
  EXPECT_EQ(TerminalType::load("dumb", true).error().message,
            "a terminal of type \"dumb\" cannot show a menu");
  EXPECT_EQ(TerminalType::load("no-such-terminal", true).error().message,
            "unknown terminal type \"no-such-terminal\"");
  EXPECT_EQ(TerminalType::load("", true).error().message, "unknown terminal type: TERM is not set");
}

TEST(TerminalType, HasColorsIfTheTerminalSupportsAndTheUserAllowsThem) {
  EXPECT_TRUE(TerminalType::load("xterm", true)->hasColors());
  EXPECT_FALSE(TerminalType::load("vt100", true)->hasColors());
  const auto plain = TerminalType::load("xterm-256color", false);
  EXPECT_FALSE(plain->hasColors());
  EXPECT_EQ(plain->style({.color = CellStyle::Color::red}), plain->style({}));
}

TEST(TerminalType, CopiesToTheClipboardIfTheTerminalSupportsIt) {
  const auto xterm = TerminalType::load("xterm", true);
  EXPECT_EQ(xterm->copy("log"), "\x1b]52;c;bG9n\a");
  EXPECT_EQ(xterm->copy("logs"), "\x1b]52;c;bG9ncw==\a");
  EXPECT_EQ(xterm->copy(""), "\x1b]52;c;\a");
  EXPECT_EQ(TerminalType::load("linux", true)->copy("log"), std::nullopt);
}

}  // namespace
}  // namespace zephyl
