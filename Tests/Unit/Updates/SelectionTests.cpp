#include "Helpers/Updates/Program/Selection.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

using namespace std::chrono_literals;

const std::string anySignature = std::string(86, 'A') + "==";  // 64 bytes

class SelectionTest : public ::testing::Test {
 protected:
  static AppcastItem item(const std::string& version) {
    return {.version = version,
            .shortVersionString = version + ".0",
            .enclosures = {{.url = "https://a.example/" + version,
                            .architecture = "x86_64",
                            .sha256 = std::string(64, 'a'),
                            .signature = anySignature,
                            .length = 10}}};
  }
  /// Returns the selected version, empty if there is none.
  [[nodiscard]] std::string chosen(const std::vector<AppcastItem>& items) const {
    const auto offer = chooseUpdate(items, feedDate_, asker_);
    EXPECT_TRUE(offer) << offer.error().message;
    return offer && *offer ? (*offer)->version : "";
  }
  [[nodiscard]] std::string refusal(const AppcastItem& bad) const {
    const auto offer = chooseUpdate({bad}, feedDate_, asker_);
    return offer ? "" : offer.error().message;
  }

  const std::chrono::sys_seconds feedDate_{900'000s};
  InstallationProfile asker_{.installedVersion = "5",
                             .architecture = "x86_64",
                             .systemVersion = "2.36",
                             .rolloutGroup = 3,
                             .now = std::chrono::sys_seconds(1'000'000s)};
};

TEST_F(SelectionTest, SelectsTheHighestNewerVersion) {
  EXPECT_EQ(chosen({}), "");
  EXPECT_EQ(chosen({item("4"), item("5"), item("5.0")}), "");
  EXPECT_EQ(chosen({item("6"), item("7"), item("6.5")}), "7");
  const auto offer = chooseUpdate({item("6")}, feedDate_, asker_);
  EXPECT_EQ((*offer)->displayVersion, "6.0");
  EXPECT_EQ((*offer)->url, "https://a.example/6");
}

TEST_F(SelectionTest, OmitsItemsForOtherSystems) {
  auto other = item("6");
  other.enclosures[0].architecture = "aarch64";
  auto newer = item("7");
  newer.minimumSystemVersion = "2.37";
  auto nameless = item("8");
  nameless.version = "../8";
  auto fitting = item("5.5");
  fitting.minimumSystemVersion = "2.36";
  EXPECT_EQ(chosen({other, newer, nameless, fitting}), "5.5");
}

TEST_F(SelectionTest, OffersItemsOfAConfiguredChannel) {
  auto beta = item("6");
  beta.channel = "beta";
  EXPECT_EQ(chosen({beta}), "");
  asker_.channels = {"alpha", "beta"};
  EXPECT_EQ(chosen({beta}), "6");
}

TEST_F(SelectionTest, OffersNoSkippedVersion) {
  asker_.skip = {"7"};
  EXPECT_EQ(chosen({item("6"), item("7")}), "6");
}

TEST_F(SelectionTest, OffersASkippedVersionThatHasBecomeCritical) {
  auto critical = item("7");
  critical.critical = true;
  asker_.skip = {"7"};
  EXPECT_EQ(chosen({item("6"), critical}), "7");
}

TEST_F(SelectionTest, OffersAFailedVersionAgainOnlyIfALaterFeedMarksItCritical) {
  auto failed = item("7");
  asker_.failed = FailedVersion{.version = "7", .feedDate = 899'999};
  EXPECT_EQ(chosen({item("6"), failed}), "6");
  failed.critical = true;
  EXPECT_EQ(chosen({item("6"), failed}), "7");
  asker_.failed->feedDate = 900'000;
  EXPECT_EQ(chosen({item("6"), failed}), "6") << "the feed from which it was installed";
  asker_.failed->version = "8";
  EXPECT_EQ(chosen({item("6"), failed}), "7");
}

TEST(FeedDate, MustNotBeOlderThanTheNewestSeenBefore) {
  using namespace std::chrono;
  const sys_seconds newest(sys_days(2026y / November / 21) + 10h);
  const auto refusal = [&](std::optional<sys_seconds> date) {
    const auto checked = checkFeedDate({.date = date}, newest);
    return checked ? "" : checked.error().message;
  };
  EXPECT_EQ(refusal(newest), "");
  EXPECT_EQ(refusal(newest + 1s), "");
  EXPECT_EQ(refusal(newest - 24h),
            "The feed is stale: it was signed on 2026-11-20, and a newer one, of 2026-11-21, "
            "was seen before.");
  EXPECT_NE(refusal(newest - 1s), "");
  EXPECT_EQ(refusal(std::nullopt), "The feed does not contain its date.");
  EXPECT_TRUE(checkFeedDate({.date = std::nullopt}, std::nullopt).has_error());
  EXPECT_EQ(checkFeedDate({.date = newest}, std::nullopt).value(), newest);
}

TEST_F(SelectionTest, OffersAPhasedRollOutToOneGroupAfterTheOther) {
  auto phased = item("6");
  phased.phasedRolloutInterval = 100s;
  phased.published = asker_.now - 299s;
  EXPECT_EQ(chosen({phased}), "");
  phased.published = asker_.now - 300s;
  EXPECT_EQ(chosen({phased}), "6");
  phased.published = asker_.now + 1s;
  asker_.rolloutGroup = 0;
  EXPECT_EQ(chosen({phased}), "");
  asker_.userInitiated = true;
  EXPECT_EQ(chosen({phased}), "6");
  asker_.userInitiated = false;
  phased.critical = true;
  EXPECT_EQ(chosen({phased}), "6");
}

TEST_F(SelectionTest, RefusesTheSelectedItemIfItCannotBeTrusted) {
  auto bad = item("6");
  bad.enclosures[0].signature.clear();
  EXPECT_EQ(refusal(bad), "The update is not signed.");
  bad = item("6");
  bad.enclosures[0].sha256 = "abc";
  EXPECT_EQ(refusal(bad), "The feed does not contain a valid hash of the update.");
  bad = item("6");
  bad.enclosures[0].length = 0;
  EXPECT_EQ(refusal(bad), "The feed does not contain the size of the update.");
  bad.enclosures[0].length = std::int64_t{1} << 40;
  EXPECT_EQ(refusal(bad), "The update is too large.");
  bad = item("6");
  bad.enclosures[0].url = "http://a.example/6";
  EXPECT_EQ(refusal(bad), "Updates are fetched only over https, not from http://a.example/6.");
}

TEST_F(SelectionTest, MakesHiddenCharactersOfReleaseNotesVisible) {
  auto noted = item("6");
  noted.description = "one\ntwo\x1b[2J";
  const auto offer = chooseUpdate({noted}, feedDate_, asker_);
  EXPECT_EQ((*offer)->releaseNotes, "one\ntwo␛[2J");
}

}  // namespace
}  // namespace zephyl
