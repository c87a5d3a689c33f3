#include "Desktop/Terminal/Drawing/DisplayText.hpp"

#include <gtest/gtest.h>

namespace zephyl::displayText {
namespace {

using Lines = std::vector<std::string>;

TEST(DisplayText, CountsColumnsRatherThanBytesOrCharacters) {
  EXPECT_EQ(width("abc"), 3);
  EXPECT_EQ(width("…—“”"), 4);
  EXPECT_EQ(width("日本"), 4);
  EXPECT_EQ(width("e\u0301"), 1);
  EXPECT_EQ(width("🚀"), 2);
  EXPECT_EQ(width("🌡"), 1);
  EXPECT_EQ(width("가"), 2);
  EXPECT_EQ(width("น้ำ"), 2);
  EXPECT_EQ(width("שָ"), 1);
  EXPECT_EQ(width("\xff"), 1);
  EXPECT_EQ(width(""), 0);
}

TEST(DisplayText, OmitsVariationSelectors) {
  EXPECT_EQ(shown("⚠️ 2 requests", {}), "⚠ 2 requests");
}

TEST(DisplayText, IsASCIIOnATerminalWithoutUnicode) {
  const TerminalCapabilities plain{.unicode = false};
  EXPECT_EQ(shown("⚠️ Rename… “x” — é", plain), "(!) Rename... \"x\" - ?");
  EXPECT_EQ(shown("e\u0301\u200b", plain), "e") << "characters without a width are omitted";
}

TEST(DisplayText, IsCutWithAnEllipsis) {
  EXPECT_EQ(cut("Patient Hill", 12, {}), "Patient Hill");
  EXPECT_EQ(cut("Patient Hill", 8, {}), "Patient…");
  EXPECT_EQ(cut("日本語", 4, {}), "日…");
  EXPECT_EQ(cut("Patient Hill", 8, {.unicode = false}), "Patie...");
  EXPECT_EQ(cut("Patient", 1, {.unicode = false}), ".");
  EXPECT_EQ(cut("Patient", 0, {}), "");
}

TEST(DisplayText, IsBrokenBetweenWords) {
  EXPECT_EQ(wrapped("one two three", 8), (Lines{"one two", "three"}));
  EXPECT_EQ(wrapped("one two three", 7), (Lines{"one two", "three"}));
  EXPECT_EQ(wrapped("one\n\ntwo", 8), (Lines{"one", "", "two"}));
  EXPECT_EQ(wrapped("", 8), Lines{""});
}

TEST(DisplayText, BreaksLongWordsAnywhere) {
  EXPECT_EQ(wrapped("/a/very/long/path", 6), (Lines{"/a/ver", "y/long", "/path"}));
  EXPECT_EQ(wrapped("日本語", 4), (Lines{"日本", "語"}));
}

TEST(DisplayText, KeepsTheIndentOfAWrappedLine) {
  EXPECT_EQ(wrapped("  • one two three", 11), (Lines{"  • one two", "  three"}));
}

TEST(DisplayText, LosesNothingWhenItIsBroken) {
  const std::string text = "cat  /etc/passwd; rm -rf  ~/precious/things and-some-very-long-words";
  for (int columns = 2; columns < 40; ++columns) {
    std::string joined;
    for (const auto& line : wrapped(text, columns)) {
      EXPECT_LE(width(line), columns);
      joined += line;
    }
    std::string letters = text;
    std::erase(letters, ' ');
    std::erase(joined, ' ');
    EXPECT_EQ(joined, letters);
  }
}

}  // namespace
}  // namespace zephyl::displayText
