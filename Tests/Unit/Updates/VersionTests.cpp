#include "Helpers/Updates/Program/Version.hpp"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace zephyl {
namespace {

TEST(Version, ComparesNumbersNumerically) {
  const std::vector<std::string> rising = {"0",
                                           "0.1",
                                           "0.9.9",
                                           "1.0a",
                                           "1.0b1",
                                           "1.0b2",
                                           "1.0b10",
                                           "1.0rc",
                                           "1.0",
                                           "1.0.1",
                                           "1.0.1.1",
                                           "1.2",
                                           "1.10",
                                           "2.0-beta.1",
                                           "2.0",
                                           "2.0-1",
                                           "10",
                                           "2026.11",
                                           "99999999999999999999999",
                                           "100000000000000000000000"};
  for (std::size_t i = 0; i < rising.size(); ++i) {
    for (std::size_t j = 0; j < rising.size(); ++j) {
      EXPECT_EQ(compareVersions(rising[i], rising[j]), i <=> j) << rising[i] << " " << rising[j];
    }
  }
}

TEST(Version, IgnoresTrailingZerosLeadingZerosAndSeparators) {
  EXPECT_EQ(compareVersions("2", "2.0.0"), std::weak_ordering::equivalent);
  EXPECT_EQ(compareVersions("1.02", "1.2"), std::weak_ordering::equivalent);
  EXPECT_EQ(compareVersions("1-2", "1.2"), std::weak_ordering::equivalent);
  EXPECT_EQ(compareVersions("1.0b", "1b"), std::weak_ordering::greater);
}

TEST(Version, IsAShortPlainText) {
  for (const auto* good : {"1", "2.0-beta.1+x", "2026.11.21"}) EXPECT_TRUE(isVersion(good)) << good;
  for (const std::string& bad :
       {std::string(), std::string("v1"), std::string("1/2"), std::string("1 2"),
        std::string("1\n"), std::string("1é"), std::string(65, '1')}) {
    EXPECT_FALSE(isVersion(bad)) << bad;
  }
}

}  // namespace
}  // namespace zephyl
