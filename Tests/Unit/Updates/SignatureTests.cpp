#include "Helpers/Updates/Program/Signature.hpp"

#include <gtest/gtest.h>

#include "Unit/Updates/SigningKey.hpp"

namespace zephyl {
namespace {

using test::SigningKey;

TEST(Base64, IsReadStrictly) {
  EXPECT_EQ(decodeBase64(""), "");
  EXPECT_EQ(decodeBase64("QQ=="), "A");
  EXPECT_EQ(decodeBase64("QUI="), "AB");
  EXPECT_EQ(decodeBase64("QUJD"), "ABC");
  EXPECT_EQ(decodeBase64("/+8A"), std::string("\xff\xef\0", 3));
  for (const auto* bad : {"Q", "QQ", "QQ=", "QQ= ", "QUJD\n", "Q=QQ", "QU*D", "QU-D",
                          "====", "    QUJD", "QUJD    ", "QUJD\n\n\n\n", "Q==="}) {
    EXPECT_EQ(decodeBase64(bad), std::nullopt) << bad;
  }
}

TEST(TrustedKeys, AreOneOrSeveralEd25519Keys) {
  const SigningKey one;
  const SigningKey two;
  EXPECT_TRUE(TrustedKeys::parse({one.publicKey()}));
  for (const auto& texts : {std::vector{one.publicKey() + " " + two.publicKey()},
                            std::vector{one.publicKey(), two.publicKey()}}) {
    const auto keys = TrustedKeys::parse(texts);
    ASSERT_TRUE(keys);
    EXPECT_TRUE(keys->verify("text", one.sign("text")));
    EXPECT_TRUE(keys->verify("text", two.sign("text")));
    EXPECT_FALSE(keys->verify("text", SigningKey().sign("text")));
  }
  EXPECT_TRUE(TrustedKeys::parse({}).has_error());
  EXPECT_TRUE(TrustedKeys::parse({""}).has_error());
  EXPECT_TRUE(TrustedKeys::parse({"QUJD"}).has_error());
  EXPECT_TRUE(TrustedKeys::parse({one.publicKey(), "nonsense"}).has_error());
}

TEST(TrustedKeys, RefuseEveryChangeOfBytesOrSignature) {
  const SigningKey key;
  const auto keys = TrustedKeys::parse({key.publicKey()});
  const std::string bytes = "some bytes";
  const std::string signature = key.sign(bytes);
  ASSERT_TRUE(keys->verify(bytes, signature));
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    std::string changed = bytes;
    changed[i] = static_cast<char>(changed[i] ^ 1);
    EXPECT_FALSE(keys->verify(changed, signature)) << i;
  }
  for (std::size_t i = 0; i < signature.size(); ++i) {
    std::string changed = signature;
    changed[i] = static_cast<char>(changed[i] ^ 1);
    EXPECT_FALSE(keys->verify(bytes, changed)) << i;
  }
  EXPECT_FALSE(keys->verify(bytes, ""));
  EXPECT_FALSE(keys->verify(bytes, signature + "x"));
  EXPECT_FALSE(keys->verify("", signature));
}

TEST(Sha256, MatchesTheTestVectors) {
  EXPECT_EQ(sha256Of("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(SignedFeed, IsReadUpToItsLastLine) {
  const SigningKey key;
  const SigningKey other;
  const auto keys = TrustedKeys::parse({key.publicKey()});
  const std::string contents = "<rss>\n<!-- signature: old -->\n</rss>\n";
  const auto signedBy = [&](const std::string& signatures) {
    return contents + "<!-- signature: " + signatures + " -->\n";
  };
  const std::string good = signedBy(key.signBase64(contents));
  EXPECT_EQ(verifiedFeed(good, *keys).value(), contents);
  const std::string both = other.signBase64(contents) + " " + key.signBase64(contents);
  EXPECT_EQ(verifiedFeed(signedBy(both), *keys).value(), contents);

  const auto refusal = [&](const std::string& feed) {
    const auto verified = verifiedFeed(feed, *keys);
    return verified ? "" : verified.error().message;
  };
  EXPECT_EQ(refusal(contents), "The feed is not signed.");
  EXPECT_EQ(refusal(good + "<item/>\n"), "The feed is not signed.");
  EXPECT_EQ(refusal(""), "The feed is not signed.");
  EXPECT_EQ(refusal("\n<!-- signature: -->\n"), "The feed is not signed.");
  EXPECT_EQ(refusal("x" + good), "The signature of the feed is invalid.");
  EXPECT_EQ(refusal(signedBy(other.signBase64(contents))), "The signature of the feed is invalid.");
  EXPECT_EQ(refusal(signedBy("")), "The signature of the feed is invalid.");
  std::string many;
  for (int i = 0; i < 8; ++i) many += "QUJD ";
  EXPECT_EQ(refusal(signedBy(many + key.signBase64(contents))),
            "The signature of the feed is invalid.");
}

}  // namespace
}  // namespace zephyl
