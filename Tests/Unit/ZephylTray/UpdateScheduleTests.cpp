#include "ZephylTray/UpdateSchedule.hpp"

#include <gtest/gtest.h>

#include "Support/TrayWorld.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;
using std::chrono::sys_seconds;

const sys_seconds now{1'000'000s};

TEST(UpdateSchedule, ChecksOnceADayAndNotAllAtTheSameTime) {
  EXPECT_EQ(untilNextCheck(now - 1h, now, 24h, 0), 23h);
  EXPECT_EQ(untilNextCheck(now - 1h, now, 24h, 0.5), 23h + 30min);
  EXPECT_EQ(untilNextCheck(now, now, 24h, 0.25), 24h + 15min);
}

TEST(UpdateSchedule, ChecksSoonWhatIsDue) {
  EXPECT_EQ(untilNextCheck(std::nullopt, now, 24h, 0), 0s);
  EXPECT_EQ(untilNextCheck(std::nullopt, now, 24h, 0.5), 1min);
  EXPECT_EQ(untilNextCheck(now - 24h, now, 24h, 0.5), 1min);
  EXPECT_EQ(untilNextCheck(now - 1000h, now, 24h, 0), 0s);
}

TEST(UpdateSchedule, TrustsNoTimeInTheFuture) {
  EXPECT_EQ(untilNextCheck(now + 1s, now, 24h, 0), 0s);
}

TEST(UpdateSchedule, ComputesWithAnyTimeThatASettingMayHold) {
  EXPECT_EQ(untilNextCheck(sys_seconds::min(), now, 24h, 0), 0s);
  EXPECT_EQ(untilNextCheck(sys_seconds::min(), now, 365 * 24h, 0), 0s);
  EXPECT_EQ(untilNextCheck(sys_seconds::max(), now, 24h, 0), 0s);
}

TEST(UpdateSchedule, TriesAgainAfterAnHourOrTwo) {
  EXPECT_EQ(untilRetry(24h, 0), 1h);
  EXPECT_EQ(untilRetry(24h, 0.5), 1h + 30min);
}

TEST(UpdateSettings, AreReadFromTheUserDefaults) {
  const test::TrayWorld world;
  EXPECT_EQ(updateSettings::checkInterval(), 24h);
  EXPECT_EQ(updateSettings::lastCheck(), std::nullopt);
  EXPECT_FALSE(updateSettings::installsAutomatically());
  EXPECT_EQ(updateSettings::skippedVersion(), std::nullopt);
  EXPECT_TRUE(updateSettings::channels().empty());

  world.directory().write("config/com.zephyl.tray/defaults.json",
                          R"({"SUScheduledCheckInterval": -5, "SUAutomaticallyUpdate": 1,
                              "SUChannels": " beta  nightly "})");
  EXPECT_EQ(updateSettings::checkInterval(), 1s);
  EXPECT_TRUE(updateSettings::installsAutomatically());
  EXPECT_EQ(updateSettings::channels(), (std::vector<std::string>{"beta", "nightly"}));
  updateSettings::setLastCheck(now);
  EXPECT_EQ(updateSettings::lastCheck(), now);
  updateSettings::setSkippedVersion("2.0");
  EXPECT_EQ(updateSettings::skippedVersion(), "2.0");
}

TEST(UpdateSettings, RememberTheNewestFeedOfAnAddress) {
  const test::TrayWorld world;
  EXPECT_EQ(updateSettings::newestFeedDate("https://a/"), std::nullopt);
  updateSettings::rememberFeedDate("https://a/", now);
  updateSettings::rememberFeedDate("https://a/", now - 1s);
  EXPECT_EQ(updateSettings::newestFeedDate("https://a/"), now);
  EXPECT_EQ(updateSettings::newestFeedDate("https://b/"), std::nullopt);
  updateSettings::rememberFeedDate("https://b/", now - 1h);
  EXPECT_EQ(updateSettings::newestFeedDate("https://b/"), now - 1h);
  EXPECT_EQ(updateSettings::newestFeedDate("https://a/"), std::nullopt);
}

TEST(UpdateSettings, KnowSinceWhenChecksShouldHaveSucceeded) {
  const test::TrayWorld world;
  EXPECT_EQ(updateSettings::lastSuccess(now), now);
  EXPECT_EQ(updateSettings::lastSuccess(now + 1h), now);
  updateSettings::setLastCheck(now + 2h);
  EXPECT_EQ(updateSettings::lastSuccess(now + 3h), now + 2h);
  EXPECT_FALSE(updateSettings::missingChecksTold());
  updateSettings::setMissingChecksTold(true);
  EXPECT_TRUE(updateSettings::missingChecksTold());
  updateSettings::setMissingChecksTold(false);
  EXPECT_FALSE(updateSettings::missingChecksTold());
}

TEST(UpdateSettings, DrawTheGroupOfAPhasedRollOutOnce) {
  const test::TrayWorld world;
  EXPECT_EQ(updateSettings::rolloutGroup([] { return 0.999; }), 6);
  EXPECT_EQ(updateSettings::rolloutGroup([] { return 0.0; }), 6);
}

}  // namespace
}  // namespace zephyl
