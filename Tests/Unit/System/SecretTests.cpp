#include "System/Data/Secret.hpp"

#include <algorithm>
#include <optional>

#include <gtest/gtest.h>

#include "Support/MemorySearch.hpp"
#include "System/Data/JSON.hpp"

namespace zephyl {
namespace {

constexpr std::size_t length = 200;

/// Letters that no other text is made of, inside out, so that they do not stand in memory.
std::string disguisedText() {
  std::string text;
  for (std::size_t i = 0; i < length; ++i) {
    text.push_back(static_cast<char>(~('g' + (i * i + i / 17) % 19)));
  }
  return text;
}

class SecretStringMemory : public ::testing::Test {
 protected:
  static void spell(SecretString& secret, std::string_view disguised) {
    for (const char letter : disguised) {
      const char plain = static_cast<char>(~letter);
      secret.append({&plain, 1});
    }
  }
  /// How often the middle of the text stands in memory. The allocator writes to the ends of what is
  /// freed.
  std::size_t copies() { return search_.count(disguised_.substr(32, 64)); }

  const std::string disguised_ = disguisedText();
  test::MemorySearch search_;
};

TEST_F(SecretStringMemory, HoldsOneCopyHoweverItGrows) {
  SecretString secret;
  spell(secret, disguised_);
  EXPECT_EQ(secret.size(), length);
  EXPECT_EQ(copies(), 1U);
  secret.reserve(100'000);
  EXPECT_EQ(copies(), 1U);
  secret.insert(0, "at the beginning ");
  EXPECT_EQ(copies(), 1U);
}

TEST_F(SecretStringMemory, HoldsNothingOnceItIsGone) {
  {
    SecretString secret;
    spell(secret, disguised_);
    EXPECT_EQ(copies(), 1U) << "the search finds nothing at all";
  }
  EXPECT_EQ(copies(), 0U);
}

TEST_F(SecretStringMemory, HoldsNothingOfWhatWasErased) {
  SecretString secret;
  spell(secret, disguised_);
  secret.erase(10, length - 10);
  EXPECT_EQ(copies(), 0U);
  spell(secret, disguised_);
  secret.clear();
  EXPECT_EQ(copies(), 0U);
}

TEST_F(SecretStringMemory, MovesWithoutACopyAndIsOverwrittenByAnAssignment) {
  SecretString secret;
  spell(secret, disguised_);
  SecretString moved = std::move(secret);
  std::optional<SecretString> kept = std::move(moved);
  EXPECT_EQ(copies(), 1U);
  kept = "another";
  EXPECT_EQ(copies(), 0U);
}

TEST_F(SecretStringMemory, IsDecodedFromJSONWithoutAnotherCopy) {
  SecretString text = "\"";
  spell(text, disguised_);
  text.append("\"");
  auto secret = json::decodeText<SecretString>(text);
  ASSERT_TRUE(secret);
  EXPECT_EQ(copies(), 2U) << "the text and the secret";
  text.clear();
  EXPECT_EQ(copies(), 1U);
  secret->clear();
  EXPECT_EQ(copies(), 0U);
}

TEST(SecretString, IsEditedLikeAText) {
  SecretString secret = "ac";
  secret.insert(1, "b");
  secret.append("def");
  EXPECT_EQ(secret, "abcdef");
  secret.erase(1, 3);
  EXPECT_EQ(secret, "aef");
  secret.erase(2, 1);
  EXPECT_EQ(secret, std::string("ae"));
  const SecretString copy = secret;
  secret.clear();
  EXPECT_TRUE(secret.empty());
  EXPECT_EQ(secret, "");
  EXPECT_EQ(copy, "ae");
  EXPECT_FALSE(copy == secret);
  EXPECT_EQ(copy[1], 'e');
}

TEST(Secret, AreComparedWhole) {
  EXPECT_TRUE(equalSecrets("", ""));
  EXPECT_TRUE(equalSecrets("abc", "abc"));
  EXPECT_FALSE(equalSecrets("abc", "abd"));
  EXPECT_FALSE(equalSecrets("abc", "ab"));
}

TEST(Secret, AreDrawnAsHexadecimalDigits) {
  const std::string drawn = randomHexadecimal(16);
  EXPECT_EQ(drawn.size(), 32U);
  EXPECT_EQ(drawn.find_first_not_of("0123456789abcdef"), std::string::npos);
  EXPECT_NE(drawn, randomHexadecimal(16));
}

}  // namespace
}  // namespace zephyl
