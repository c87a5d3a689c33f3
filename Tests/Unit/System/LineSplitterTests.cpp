#include "System/Data/LineSplitter.hpp"

#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace zephyl {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Lines = std::vector<std::string>;

void append(LineSplitter& splitter, std::string_view bytes, Lines& lines) {
  while (const auto line = splitter.next(bytes)) lines.emplace_back(*line);
}

Lines linesOf(const std::vector<std::string>& pieces, std::size_t maxLineBytes = 100) {
  LineSplitter splitter(maxLineBytes);
  Lines lines;
  for (const auto& piece : pieces) append(splitter, piece, lines);
  if (const auto line = splitter.rest()) lines.emplace_back(*line);
  return lines;
}

TEST(LineSplitter, SplitsAtBothKindsOfLineEnds) {
  EXPECT_THAT(linesOf({"one\ntwo\r\nthree\n"}), ElementsAre("one", "two", "three"));
}

TEST(LineSplitter, GivesEmptyLines) {
  EXPECT_THAT(linesOf({"\n\r\na\n\n"}), ElementsAre("", "", "a", ""));
}

TEST(LineSplitter, GivesTheSameLinesWhereverTheBytesAreSplit) {
  const std::string text = "data: {\"näme\": \"日本\"}\r\n\r\n: note\ndata: \xff\r\r\n\nlast";
  const auto whole = linesOf({text});
  for (std::size_t first = 0; first <= text.size(); ++first) {
    for (std::size_t second = first; second <= text.size(); ++second) {
      EXPECT_EQ(
          linesOf({text.substr(0, first), text.substr(first, second - first), text.substr(second)}),
          whole)
          << first << ", " << second;
    }
  }
}

TEST(LineSplitter, KeepsACarriageReturnInsideALine) {
  EXPECT_THAT(linesOf({"a\rb\r\r\nc\r", "d\n"}), ElementsAre("a\rb\r", "c\rd"));
}

TEST(LineSplitter, GivesTheUnterminatedLineAtTheEnd) {
  EXPECT_THAT(linesOf({"one\n", "tw", "o"}), ElementsAre("one", "two"));
  EXPECT_THAT(linesOf({"one\n"}), ElementsAre("one"));
  EXPECT_THAT(linesOf({}), IsEmpty());
}

TEST(LineSplitter, AcceptsALineOfExactlyTheLimit) {
  EXPECT_THAT(linesOf({"12345\n12345\r\n12345"}, 5), ElementsAre("12345", "12345", "12345"));
  EXPECT_THAT(linesOf({"1234", "5\n123", "45", "\r", "\n12345"}, 5),
              ElementsAre("12345", "12345", "12345"));
}

TEST(LineSplitter, SkipsALineBeyondTheLimitAndContinues) {
  EXPECT_THAT(linesOf({"123456\nok\n"}, 5), ElementsAre("ok"));
  EXPECT_THAT(linesOf({"123456\r\nok\n"}, 5), ElementsAre("ok"));
  EXPECT_THAT(linesOf({"123", "456", "789", "\nok\n"}, 5), ElementsAre("ok"));
  EXPECT_THAT(linesOf({"12345", "6\r", "\nok\n"}, 5), ElementsAre("ok"));
  EXPECT_THAT(linesOf({"a\n1234567"}, 5), ElementsAre("a"));
  EXPECT_THAT(linesOf({"a\n1234567", "8"}, 5), ElementsAre("a"));
}

TEST(LineSplitter, ConsumesTheBytesUpToTheEndOfTheLine) {
  LineSplitter splitter(100);
  std::string_view bytes = "one\ntwo";
  EXPECT_EQ(splitter.next(bytes), "one");
  EXPECT_EQ(bytes, "two");
  EXPECT_EQ(splitter.next(bytes), std::nullopt);
  EXPECT_EQ(bytes, "");
}

TEST(LineSplitter, GivesALineOfOnePieceWithoutACopy) {
  LineSplitter splitter(100);
  const std::string_view text = "one\n";
  auto bytes = text;
  EXPECT_EQ(splitter.next(bytes)->data(), text.data());
}

}  // namespace
}  // namespace zephyl
