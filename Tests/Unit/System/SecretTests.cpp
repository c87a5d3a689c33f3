#include "System/Data/Secret.hpp"

#include <gtest/gtest.h>

#include "System/Data/JSON.hpp"

namespace zephyl {
namespace {

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

TEST(SecretString, IsReadFromAndWrittenToJSONAsAText) {
  EXPECT_EQ(json::decodeText<SecretString>(R"("a\"b")").value(), "a\"b");
  EXPECT_EQ(json::decodeText<SecretString>("1").error().message, "not a string");
  EXPECT_EQ(json::compact(json::encode(SecretString("a\"b"))), R"("a\"b")");
}

TEST(Secret, AreComparedCompletely) {
  EXPECT_TRUE(equalSecrets("", ""));
  EXPECT_TRUE(equalSecrets("abc", "abc"));
  EXPECT_FALSE(equalSecrets("abc", "abd"));
  EXPECT_FALSE(equalSecrets("abc", "ab"));
}

TEST(Secret, AreGeneratedAsHexadecimalDigits) {
  const std::string drawn = randomHexadecimal(16);
  EXPECT_EQ(drawn.size(), 32U);
  EXPECT_EQ(drawn.find_first_not_of("0123456789abcdef"), std::string::npos);
  EXPECT_NE(drawn, randomHexadecimal(16));
}

}  // namespace
}  // namespace zephyl
