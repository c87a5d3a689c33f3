#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include "Support/LogCapture.hpp"
#include "System/Files/Files.hpp"
#include "Unit/ZephylTray/ProcessUpdaterTest.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;
using test::ProcessUpdaterTest;
using test::Told;

/// An update that was found by a manual check, downloaded, and waits for the agent.
class WaitingUpdateTest : public ProcessUpdaterTest {
 protected:
  void wait() {
    delegate_->busy = true;
    startAndCheck();
    find();
    press("Install Update");
    report(UpdateStaged{"200"});
    delegate_->take();
    ASSERT_EQ(runs(), 2U);
  }
  /// Waits until the next scheduled check begins.
  void waitForCheck() {
    const auto before = runs();
    runtime_.advance(25h);
    ASSERT_EQ(runs(), before + 1);
    ASSERT_TRUE(isCommand<CheckCommand>());
  }
  [[nodiscard]] UpdateOffer newer() const {
    UpdateOffer offer = offer_;
    offer.version = "300";
    offer.displayVersion = "3.0";
    offer.sha256 = "33";
    return offer;
  }
  void findNewer() { report(UpdateFound{.offer = newer(), .feedDate = 600}); }
};

TEST_F(WaitingUpdateTest, IsCheckedForOnceADayAndInstalledAfterwards) {
  wait();
  waitForCheck();
  EXPECT_TRUE(command<CheckCommand>().userInitiated) << "the original mode";
  find();
  EXPECT_EQ(runs(), 3U) << "it is the same";
  EXPECT_TRUE(delegate_->take().empty());
  waitForCheck();
  find();
  delegate_->proceed();
  EXPECT_EQ(runs(), 5U);
  EXPECT_EQ(command<InstallCommand>().version, "200");
}

TEST_F(WaitingUpdateTest, IsReplacedByANewerVersionWithoutAQuestion) {
  wait();
  const auto allowOldVersion = delegate_->proceed;
  waitForCheck();
  findNewer();
  ASSERT_EQ(runs(), 4U);
  EXPECT_EQ(command<DownloadCommand>().offer.version, "300");
  EXPECT_TRUE(dialogs_.alerts().empty());
  allowOldVersion();
  EXPECT_EQ(runs(), 4U) << "the old version has been removed";
  report(UpdateStaged{"300"});
  EXPECT_EQ(delegate_->take(), (Told{"abandoned", "found 3.0", "ready 300"}));
  delegate_->proceed();
  EXPECT_EQ(command<InstallCommand>().version, "300");
}

TEST_F(WaitingUpdateTest, IsAbandonedIfTheNewerVersionCannotBeDownloaded) {
  wait();
  waitForCheck();
  findNewer();
  report(UpdateFailed{"404"});
  EXPECT_EQ(delegate_->take(), (Told{"abandoned", "found 3.0", "finished"}));
  EXPECT_TRUE(controller_->canCheckForUpdates());
}

TEST_F(WaitingUpdateTest, IsNotInstalledOnceItHasBeenWithdrawn) {
  wait();
  waitForCheck();
  findNothing();
  EXPECT_EQ(delegate_->take(), (Told{"abandoned", "none", "finished"}));
  EXPECT_TRUE(controller_->canCheckForUpdates());
  delegate_->proceed();
  EXPECT_EQ(runs(), 3U);
}

TEST_F(WaitingUpdateTest, IsInstalledAfterTheCheckDuringWhichItIsAllowed) {
  wait();
  waitForCheck();
  delegate_->proceed();
  EXPECT_EQ(runs(), 3U) << "the check may remove what is staged";
  find();
  EXPECT_EQ(command<InstallCommand>().version, "200");
}

TEST_F(WaitingUpdateTest, SurvivesFailedChecks) {
  wait();
  waitForCheck();
  report(UpdateFailed{"The server cannot be reached."});
  EXPECT_TRUE(dialogs_.alerts().empty());
  runtime_.advance(2h);
  EXPECT_EQ(runs(), 4U) << "the next check runs sooner";
  report(UpdateFailed{"The server cannot be reached."});
  delegate_->proceed();
  EXPECT_EQ(command<InstallCommand>().version, "200");
}

// The date of the feed

TEST_F(ProcessUpdaterTest, RemembersTheDateOfTheNewestFeed) {
  startAndCheck();
  EXPECT_EQ(command<CheckCommand>().newestFeedDate, std::nullopt);
  findNothing(500);
  press("OK");
  controller_->checkForUpdates();
  EXPECT_EQ(command<CheckCommand>().newestFeedDate, 500);
  findNothing(400);  // which the updater does not accept
  press("OK");
  controller_->checkForUpdates();
  EXPECT_EQ(command<CheckCommand>().newestFeedDate, 500);
  report(UpdateFound{.offer = offer_, .feedDate = 600});
  press("Remind Me Later");
  controller_->checkForUpdates();
  EXPECT_EQ(command<CheckCommand>().newestFeedDate, 600);
  findNothing(600);
  press("OK");
  world_.directory().write("zephyl/share/zephyl-tray/Info.json",
                           R"({"SUFeedURL": "https://b.example/feed"})");
  controller_->checkForUpdates();
  EXPECT_EQ(command<CheckCommand>().newestFeedDate, std::nullopt) << "the date of another feed";
}

TEST_F(ProcessUpdaterTest, RecordsTheDateOfTheFeedWithAFailedVersion) {
  makeStateDirectory();
  settings().rememberFeedDate("https://a.example/feed",
                              std::chrono::sys_seconds(std::chrono::seconds(500)));
  ASSERT_TRUE(writeMarker(files_.failed, {.version = "200", .displayVersion = "2.0"}));
  start();
  press("OK");
  settings().rememberFeedDate("https://a.example/feed",
                              std::chrono::sys_seconds(std::chrono::seconds(600)));
  runtime_.advance(1min);
  EXPECT_EQ(command<CheckCommand>().failed.value().version, "200");
  EXPECT_EQ(command<CheckCommand>().failed->feedDate, 500);
}

// Checks that fail for weeks

TEST_F(ProcessUpdaterTest, ReportsOnceThatNoCheckHasSucceededForFourWeeks) {
  settings().setLastCheck(now());
  start();
  const auto failChecksFor = [&](std::chrono::hours time) {
    for (const auto until = now() + time; now() < until;) {
      const auto before = runs();
      runtime_.advance(1h);
      if (runs() > before) report(UpdateFailed{"The server cannot be reached."});
    }
  };
  failChecksFor(27 * 24h);
  EXPECT_GT(runs(), 100U);
  EXPECT_TRUE(dialogs_.alerts().empty());
  failChecksFor(2 * 24h);
  EXPECT_EQ(shown(), "Zephyl could not check for updates for four weeks");
  EXPECT_NE(dialogs_.alerts().back().explanation.find("cannot be reached"), std::string::npos);
  press("OK");
  failChecksFor(40 * 24h);
  EXPECT_TRUE(dialogs_.alerts().empty()) << "once";

  controller_->checkForUpdates();
  findNothing();
  press("OK");
  failChecksFor(30 * 24h);
  EXPECT_EQ(shown(), "Zephyl could not check for updates for four weeks")
      << "the time of the next check";
}

TEST_F(ProcessUpdaterTest, CountsFourWeeksFromTheFirstStartIfNoCheckSucceeded) {
  start();
  runtime_.advance(1min);
  report(UpdateFailed{"The server cannot be reached."});
  EXPECT_TRUE(dialogs_.alerts().empty());
  controller_.reset();
  runtime_.advance(29 * 24h);
  start();
  EXPECT_TRUE(dialogs_.alerts().empty()) << "the machine may have been off";
  runtime_.advance(1min);
  report(UpdateFailed{"The feed is stale."});
  EXPECT_EQ(shown(), "Zephyl could not check for updates for four weeks");
}

// The clock

TEST_F(ProcessUpdaterTest, ChecksWhenItIsDueAlthoughTheClockWasSetBack) {
  settings().setLastCheck(now());
  start();
  runtime_.clock.setCalendar(-30 * 24h);
  runtime_.advance(25h);
  EXPECT_EQ(runs(), 1U);
}

TEST_F(ProcessUpdaterTest, ChecksWhenItIsDueAfterASuspend) {
  settings().setLastCheck(now());
  start();
  runtime_.clock.setCalendar(25h);
  runtime_.advance(ProcessUpdater::maxTimerInterval);
  EXPECT_EQ(runs(), 1U);
}

// The state directory

TEST_F(ProcessUpdaterTest, IgnoresADirectoryThatOthersMayEnter) {
  makeStateDirectory();
  ASSERT_TRUE(createDirectories(files_.staged));
  ASSERT_TRUE(writeMarker(files_.failed, {.version = "200", .displayVersion = "2.0, call …"}));
  ASSERT_TRUE(writeMarker(files_.trial, {.version = "1.0", .displayVersion = "1.0"}));
  ASSERT_EQ(::chmod(files_.directory.c_str(), 0755), 0);
  settings().setLastCheck(now());
  start();
  EXPECT_TRUE(dialogs_.alerts().empty());
  runtime_.advance(10min);
  EXPECT_EQ(runs(), 0U);
  EXPECT_TRUE(fileExists(files_.trial));
  runtime_.advance(25h);
  EXPECT_EQ(command<CheckCommand>().failed, std::nullopt);
}

TEST_F(ProcessUpdaterTest, HasThePreviousVersionWatchTheRestart) {
  makeStateDirectory();
  const std::string previous = world_.directory().write(
      ".zephyl.updates/previous/libexec/zephyl-tray/zephyl-tray-updater", "", true);
  startAndCheck();
  find();
  press("Install Update");
  report(UpdateStaged{"200"});
  report(UpdateInstalled{"200"});
  ASSERT_TRUE(isCommand<WatchCommand>());
  EXPECT_EQ(runtime_.launcher.newest()->options().executable, previous);
}

TEST_F(ProcessUpdaterTest, DoesNotConfirmAnotherVersion) {
  makeStateDirectory();
  ASSERT_TRUE(writeMarker(files_.trial, {.version = "2.0", .displayVersion = "2.0"}));
  const auto log = test::logOf([&] {
    start();
    runtime_.advance(10s);
  });
  EXPECT_TRUE(fileExists(files_.trial));
  EXPECT_EQ(log, "[tray] version 2.0 is unconfirmed, but this process runs another version\n");
}

}  // namespace
}  // namespace zephyl
