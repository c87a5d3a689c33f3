#include "System/Data/LogRing.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

TEST(LogRing, KeepsLinesOldestFirst) {
  LogRing ring;
  EXPECT_TRUE(ring.empty());
  ring.append("one");
  ring.append("two");
  EXPECT_EQ(ring.lines(), (std::vector<std::string>{"one", "two"}));
  EXPECT_FALSE(ring.empty());
}

TEST(LogRing, KeepsTheNewestTwoHundredLines) {
  LogRing ring;
  for (int i = 1; i <= 250; ++i) ring.append(std::to_string(i));
  const auto lines = ring.lines();
  ASSERT_EQ(lines.size(), 200U);
  EXPECT_EQ(lines.front(), "51");
  EXPECT_EQ(lines.back(), "250");
}

TEST(LogRing, KeepsAtMostItsBytes) {
  LogRing ring;
  for (int i = 0; i < 65; ++i) ring.append(std::string(4096, static_cast<char>('0' + i)));
  const auto lines = ring.lines();
  ASSERT_EQ(lines.size(), 64U);
  EXPECT_EQ(lines.front().front(), '1');
}

TEST(LogRing, RemovesOnlyAsManyLinesAsNeeded) {
  LogRing ring;
  for (int i = 0; i < 10; ++i) ring.append(std::to_string(i));
  ring.append(std::string(LogRing::maxBytes - 1, 'x'));
  const auto lines = ring.lines();
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines.front(), "9");
}

TEST(LogRing, KeepsTheOtherLinesIfOneIsTooLarge) {
  LogRing ring;
  ring.append("kept");
  ring.append(std::string(LogRing::maxBytes + 1, 'x'));
  EXPECT_EQ(ring.lines(), std::vector<std::string>{"kept"});
}

TEST(LogRing, AcceptsEmptyLines) {
  LogRing ring;
  for (int i = 0; i < 250; ++i) ring.append("");
  EXPECT_EQ(ring.lines().size(), 200U);
}

TEST(LogRing, ReturnsTheLinesAfterAPosition) {
  LogRing ring;
  for (const auto* line : {"one", "two", "three"}) ring.append(line);
  const auto all = ring.since(0);
  EXPECT_EQ(all.lines.size(), 3U);
  EXPECT_EQ(all.end, 3U);
  EXPECT_EQ(ring.since(2).lines, std::vector<std::string>{"three"});
  EXPECT_TRUE(ring.since(3).lines.empty());
}

TEST(LogRing, CountsTheLinesMissedByAReader) {
  LogRing ring;
  for (int i = 1; i <= 250; ++i) ring.append(std::to_string(i));
  const auto tail = ring.since(10);
  EXPECT_EQ(tail.skipped, 40U);
  EXPECT_EQ(tail.lines.front(), "51");
  EXPECT_EQ(tail.end, 250U);
}

TEST(LogRing, ReturnsEverythingForAPositionOfAnotherLog) {
  LogRing ring;
  ring.append("first");
  EXPECT_EQ(ring.since(77).lines, std::vector<std::string>{"first"});
}

}  // namespace
}  // namespace zephyl
