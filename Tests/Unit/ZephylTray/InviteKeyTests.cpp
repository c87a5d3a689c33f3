#include "ZephylTray/Registry/InviteKey.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

using Kind = InviteKey::ParseError::Kind;

const std::string sampleFingerprint = "0123456789abcdef0123456789abcdef";

std::string currentKey(const std::string& print, const std::string& section = "abc") {
  return "inv_v2_" + print + "_" + section;
}

Kind failureOf(const std::string& text) {
  return InviteKey::parse(text).error().kind;
}

TEST(InviteKey, ReadsACurrentKeyAndCompletesItsSecret) {
  const auto key = InviteKey::parse(currentKey(sampleFingerprint));
  ASSERT_TRUE(key);
  EXPECT_EQ(*key, (InviteKey::Parsed{sampleFingerprint, "hskey-auth-abc"}));
}

TEST(InviteKey, ReadsAnOlderKeyAndKeepsItsSecretUnchanged) {
  const auto key = InviteKey::parse("inv1_" + sampleFingerprint + "_abc");
  ASSERT_TRUE(key);
  EXPECT_EQ(*key, (InviteKey::Parsed{sampleFingerprint, "abc"}));
}

TEST(InviteKey, IgnoresWhitespaceAndNewlinesAroundTheKey) {
  for (const auto* space : {" ", "\t", "\n", "\r\n", " \t\v\f\n ", "\u00A0", "\u2028\u3000"}) {
    const auto key = InviteKey::parse(space + currentKey(sampleFingerprint) + space);
    ASSERT_TRUE(key) << space;
    EXPECT_EQ(key->preauthKey, "hskey-auth-abc");
  }
}

TEST(InviteKey, ConvertsTheFingerprintToLowerCase) {
  const auto key = InviteKey::parse(currentKey("0123456789ABCDEF0123456789abcdef"));
  ASSERT_TRUE(key);
  EXPECT_EQ(key->fingerprint, sampleFingerprint);
}

TEST(InviteKey, KeepsTheCompleteKeySection) {
  EXPECT_EQ(InviteKey::parse(currentKey(sampleFingerprint, "a_B__c_"))->preauthKey,
            "hskey-auth-a_B__c_");
  EXPECT_EQ(InviteKey::parse("inv1_" + sampleFingerprint + "__x")->preauthKey, "_x");
}

TEST(InviteKey, RefusesAnotherFingerprint) {
  const std::string g = "g" + sampleFingerprint.substr(1);
  const std::string accented = "é" + sampleFingerprint.substr(2);
  for (const auto& bad : {sampleFingerprint.substr(1), sampleFingerprint + "0", g, accented,
                          std::string(), std::string("xyz")}) {
    EXPECT_EQ(failureOf(currentKey(bad)), Kind::badFingerprint) << bad;
    EXPECT_EQ(failureOf("inv1_" + bad + "_abc"), Kind::badFingerprint) << bad;
  }
}

TEST(InviteKey, ChecksTheFingerprintBeforeTheKeySection) {
  EXPECT_EQ(failureOf("inv_v2_" + sampleFingerprint + "_"), Kind::badPreauthKey);
  EXPECT_EQ(failureOf("inv1_" + sampleFingerprint + "_"), Kind::badPreauthKey);
  EXPECT_EQ(failureOf("inv_v2_xyz_"), Kind::badFingerprint);
}

TEST(InviteKey, IsMalformedWithoutItsParts) {
  for (const auto& bad : {std::string(), std::string(" \n"), std::string("inv_v2"),
                          std::string("inv1"), std::string("inv_v2_"), std::string("inv1_"),
                          "inv_v2_" + sampleFingerprint, "inv1_" + sampleFingerprint}) {
    EXPECT_EQ(InviteKey::parse(bad).error(), (InviteKey::ParseError{Kind::malformed, {}})) << bad;
  }
}

TEST(InviteKey, TreatsAnUnknownPrefixAsANewerVersion) {
  const auto version = [](const std::string& text) {
    const auto error = InviteKey::parse(text).error();
    EXPECT_EQ(error.kind, Kind::unsupportedVersion) << text;
    return error.version;
  };
  EXPECT_EQ(version("hello"), "hello");
  EXPECT_EQ(version(" inv2_abc_def\n"), "inv2");
  EXPECT_EQ(version("inv_v3_" + sampleFingerprint + "_abc"), "inv");
  EXPECT_EQ(version("INV1_" + sampleFingerprint + "_abc"), "INV1");
}

TEST(InviteKey, ReportsErrorsInWordsForTheUser) {
  const auto told = [](const std::string& text) {
    return InviteKey::parse(text).error().errorDescription();
  };
  EXPECT_EQ(told("hello"),
            "This invite key (hello) is newer than this copy of Zephyl. Update Zephyl and try "
            "again.");
  EXPECT_EQ(told(""), "That doesn't look like a Zephyl invite key.");
  EXPECT_EQ(told(currentKey("xyz")),
            "The invite key's fingerprint is invalid. Ask for a fresh invite.");
  EXPECT_EQ(told(currentKey(sampleFingerprint, "")),
            "The invite key is missing its key section. Ask for a fresh invite.");
}

}  // namespace
}  // namespace zephyl
