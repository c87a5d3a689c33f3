#include "ZephylTray/Tailnet/PreauthKey.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

TEST(PreauthKey, IsNumberedFromOne) {
  PreauthKey key;
  EXPECT_EQ(key.number(), 0U);
  EXPECT_EQ(key.stored(), std::nullopt);
  key.store("hskey-auth-first");
  key.store("hskey-auth-second");
  EXPECT_EQ(key.number(), 2U);
  EXPECT_EQ(key.stored(), SecretString("hskey-auth-second"));
}

TEST(PreauthKey, IsClearedUnderItsOwnNumberOnly) {
  PreauthKey key;
  key.store("hskey-auth-first");
  key.store("hskey-auth-second");
  key.clear(1);
  EXPECT_EQ(key.stored(), SecretString("hskey-auth-second"));
  key.clear(2);
  EXPECT_EQ(key.stored(), std::nullopt);
  EXPECT_EQ(key.number(), 2U);
}

TEST(PreauthKey, IsRedactedWithAndWithoutItsPrefix) {
  PreauthKey key;
  key.store("hskey-auth-kq7v-secret");
  EXPECT_EQ(key.redacted("key hskey-auth-kq7v-secret, kq7v-secret"), "key [redacted], [redacted]");
  EXPECT_EQ(key.redacted("hskey-auth-other"), "hskey-auth-other");
}

TEST(PreauthKey, WithoutThePrefixIsRedactedWhole) {
  PreauthKey key;
  key.store("kq7v-secret");
  EXPECT_EQ(key.redacted("kq7v-secretkq7v-secret"), "[redacted][redacted]");
}

TEST(PreauthKey, IsNoLongerRedactedAfterItWasCleared) {
  PreauthKey key;
  key.store("kq7v-secret");
  key.clear(1);
  EXPECT_EQ(key.redacted("kq7v-secret"), "kq7v-secret");
}

TEST(PreauthKey, OfFewerThanEightCharactersIsNotRedacted) {
  PreauthKey key;
  key.store("1234567");
  EXPECT_EQ(key.redacted("1234567"), "1234567");
  key.store("12345678");
  EXPECT_EQ(key.redacted("12345678"), "[redacted]");
}

}  // namespace
}  // namespace zephyl
