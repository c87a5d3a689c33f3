#include "ZephylTray/Actions/LogExcerpt.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

/// The numbers from `first` to `last`.
std::vector<std::string> numbered(int first, int last) {
  std::vector<std::string> lines;
  for (int number = first; number <= last; ++number) lines.push_back(std::to_string(number));
  return lines;
}

TEST(LogExcerpt, ContainsANoteIfTheLogIsEmpty) {
  EXPECT_EQ(logExcerpt({}), "(no output yet)");
}

TEST(LogExcerpt, ShowsAShortLogCompletely) {
  EXPECT_EQ(logExcerpt({"one"}), "one");
  EXPECT_EQ(logExcerpt({"", "two", ""}), "\ntwo\n");
  EXPECT_EQ(logExcerpt(numbered(1, 18)),
            "1\n2\n3\n4\n5\n6\n7\n8\n9\n10\n11\n12\n13\n14\n15\n16\n17\n18");
}

TEST(LogExcerpt, ShowsBeginningAndEndOfALongerOne) {
  EXPECT_EQ(logExcerpt(numbered(1, 19)),
            "1\n2\n3\n4\n5\n6\n\n… TRUNCATED LINES …\n\n"
            "8\n9\n10\n11\n12\n13\n14\n15\n16\n17\n18\n19");
  EXPECT_EQ(logExcerpt(numbered(1, 200)),
            "1\n2\n3\n4\n5\n6\n\n… TRUNCATED LINES …\n\n"
            "189\n190\n191\n192\n193\n194\n195\n196\n197\n198\n199\n200");
}

TEST(LogExcerpt, MakesControlCharactersVisible) {
  EXPECT_EQ(logExcerpt({"a\x1b[31mb", "c\nd"}), "a␛[31mb\nc␊d");
}

}  // namespace
}  // namespace zephyl
