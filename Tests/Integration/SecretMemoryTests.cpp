#include <optional>

#include <gtest/gtest.h>

#include "Support/MemorySearch.hpp"
#include "System/Data/JSON.hpp"
#include "System/Data/Secret.hpp"

namespace zephyl {
namespace {

constexpr std::size_t length = 200;

/// Letters that no other text contains, inside out, so that memory does not contain the original.
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
  /// Counts the middle of the text in memory, because the allocator overwrites the ends of freed
  /// memory.
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

TEST_F(SecretStringMemory, HoldsNothingAfterItsDestruction) {
  {
    SecretString secret;
    spell(secret, disguised_);
    EXPECT_EQ(copies(), 1U) << "the search does not find existing text";
  }
  EXPECT_EQ(copies(), 0U);
}

TEST_F(SecretStringMemory, HoldsNothingOfAnErasedText) {
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

}  // namespace
}  // namespace zephyl
