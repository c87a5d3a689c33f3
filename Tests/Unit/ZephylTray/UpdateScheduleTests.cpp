#include "Helpers/Updates/Client/UpdateSchedule.hpp"

#include <gtest/gtest.h>

#include "Support/TrayWorld.hpp"
#include "ZephylTray/Config/Config.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;
using std::chrono::sys_seconds;

UpdateSettings settings() {
  return UpdateSettings(Config::defaults());
}

const sys_seconds now{1'000'000s};

TEST(UpdateSchedule, ChecksOnceADayAndNotAllAtTheSameTime) {
  EXPECT_EQ(untilNextCheck(now - 1h, now, 24h, 0), 23h);
  EXPECT_EQ(untilNextCheck(now - 1h, now, 24h, 0.5), 23h + 30min);
  EXPECT_EQ(untilNextCheck(now, now, 24h, 0.25), 24h + 15min);
}

TEST(UpdateSchedule, ChecksSoonIfACheckIsDue) {
  EXPECT_EQ(untilNextCheck(std::nullopt, now, 24h, 0), 0s);
  EXPECT_EQ(untilNextCheck(std::nullopt, now, 24h, 0.5), 1min);
  EXPECT_EQ(untilNextCheck(now - 24h, now, 24h, 0.5), 1min);
  EXPECT_EQ(untilNextCheck(now - 1000h, now, 24h, 0), 0s);
}

TEST(UpdateSchedule, IgnoresATimeInTheFuture) {
  EXPECT_EQ(untilNextCheck(now + 1s, now, 24h, 0), 0s);
}

TEST(UpdateSchedule, HandlesAnyStoredTime) {
  EXPECT_EQ(untilNextCheck(sys_seconds::min(), now, 24h, 0), 0s);
  EXPECT_EQ(untilNextCheck(sys_seconds::min(), now, 365 * 24h, 0), 0s);
  EXPECT_EQ(untilNextCheck(sys_seconds::max(), now, 24h, 0), 0s);
}

TEST(UpdateSchedule, RetriesAfterAnHourOrTwo) {
  EXPECT_EQ(untilRetry(24h, 0), 1h);
  EXPECT_EQ(untilRetry(24h, 0.5), 1h + 30min);
}

TEST(UpdateSettings, AreReadFromTheUserDefaults) {
  const test::TrayWorld world;
  EXPECT_EQ(settings().checkInterval(), 24h);
  EXPECT_EQ(settings().lastCheck(), std::nullopt);
  EXPECT_FALSE(settings().installsAutomatically());
  EXPECT_EQ(settings().skippedVersion(), std::nullopt);
  EXPECT_TRUE(settings().channels().empty());

  world.directory().write("config/com.zephyl.tray/defaults.json",
                          R"({"SUScheduledCheckInterval": -5, "SUAutomaticallyUpdate": 1,
                              "SUChannels": " beta  nightly "})");
  EXPECT_EQ(settings().checkInterval(), 1s);
  EXPECT_TRUE(settings().installsAutomatically());
  EXPECT_EQ(settings().channels(), (std::vector<std::string>{"beta", "nightly"}));
  settings().setLastCheck(now);
  EXPECT_EQ(settings().lastCheck(), now);
  settings().setSkippedVersion("2.0");
  EXPECT_EQ(settings().skippedVersion(), "2.0");
}

TEST(UpdateSettings, RememberTheNewestFeedOfAnAddress) {
  const test::TrayWorld world;
  EXPECT_EQ(settings().newestFeedDate("https://a/"), std::nullopt);
  settings().rememberFeedDate("https://a/", now);
  settings().rememberFeedDate("https://a/", now - 1s);
  EXPECT_EQ(settings().newestFeedDate("https://a/"), now);
  EXPECT_EQ(settings().newestFeedDate("https://b/"), std::nullopt);
  settings().rememberFeedDate("https://b/", now - 1h);
  EXPECT_EQ(settings().newestFeedDate("https://b/"), now - 1h);
  EXPECT_EQ(settings().newestFeedDate("https://a/"), std::nullopt);
}

TEST(UpdateSettings, StoreTheStartOfThePeriodWithoutASuccessfulCheck) {
  const test::TrayWorld world;
  EXPECT_EQ(settings().lastSuccess(now), now);
  EXPECT_EQ(settings().lastSuccess(now + 1h), now);
  settings().setLastCheck(now + 2h);
  EXPECT_EQ(settings().lastSuccess(now + 3h), now + 2h);
  EXPECT_FALSE(settings().missingChecksReported());
  settings().setMissingChecksReported(true);
  EXPECT_TRUE(settings().missingChecksReported());
  settings().setMissingChecksReported(false);
  EXPECT_FALSE(settings().missingChecksReported());
}

TEST(UpdateSettings, ChooseTheGroupOfAPhasedRollOutOnce) {
  const test::TrayWorld world;
  EXPECT_EQ(settings().rolloutGroup([] { return 0.999; }), 6);
  EXPECT_EQ(settings().rolloutGroup([] { return 0.0; }), 6);
}

}  // namespace
}  // namespace zephyl
