#include <gtest/gtest.h>

#include <unistd.h>

#include "Helpers/Updates/Client/UpdateAlerts.hpp"
#include "Support/LogCapture.hpp"
#include "System/Files/Files.hpp"
#include "Unit/ZephylTray/ProcessUpdaterTest.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;
using test::ProcessUpdaterTest;
using test::Told;

TEST_F(ProcessUpdaterTest, ShowsAndInstallsAnUpdateThatTheUserAskedFor) {
  startAndCheck();
  EXPECT_FALSE(controller_->canCheckForUpdates());
  ASSERT_TRUE(isCommand<CheckCommand>());
  EXPECT_TRUE(command<CheckCommand>().userInitiated);
  EXPECT_EQ(command<CheckCommand>().prefix, prefix_);
  find();
  EXPECT_EQ(delegate_->take(), (Told{"found 2.0", "shown to the user who asked"}));
  const Alert found = dialogs_.alerts().back();
  EXPECT_NE(found.explanation.find("you have 1.0"), std::string::npos);
  EXPECT_NE(found.explanation.find("Calmer."), std::string::npos);
  press("Install Update");
  EXPECT_EQ(delegate_->take(), Told{"attention"});
  ASSERT_TRUE(isCommand<DownloadCommand>());
  EXPECT_EQ(command<DownloadCommand>().offer.url, offer_.url);
  EXPECT_EQ(shown(), "Downloading Zephyl 2.0…");
  report(UpdateProgress{.received = 10, .total = 1'000'000});
  report(UpdateStaged{"200"});
  EXPECT_TRUE(dialogs_.alerts().empty());
  EXPECT_EQ(delegate_->take(), Told{"ready 200"});
  ASSERT_TRUE(isCommand<InstallCommand>());
  EXPECT_EQ(command<InstallCommand>().version, "200");
  EXPECT_EQ(relaunches_, 0);
  report(UpdateInstalled{"200"});
  EXPECT_EQ(relaunches_, 1);
  ASSERT_TRUE(isCommand<WatchCommand>());
  EXPECT_EQ(command<WatchCommand>().process, ::getpid());
  EXPECT_EQ(command<WatchCommand>().arguments, std::vector<std::string>{"--headless"});
}

TEST_F(ProcessUpdaterTest, ASecondRequestOfTheUserBringsTheOpenWindowToTheFront) {
  startAndCheck();
  controller_->checkForUpdates();
  EXPECT_TRUE(dialogs_.alerts().empty()) << "no window is open";
  find();
  EXPECT_EQ(dialogs_.timesBroughtToFront(), 0);
  controller_->checkForUpdates();
  EXPECT_EQ(dialogs_.timesBroughtToFront(), 1);
  press("Install Update");
  controller_->checkForUpdates();
  EXPECT_EQ(dialogs_.timesBroughtToFront(), 1) << "of the download's window";
  EXPECT_EQ(runs(), 2U);
}

TEST_F(ProcessUpdaterTest, TheFirstWindowGetsTheActivationTokenOfTheRequest) {
  dialogs_.activationToken = "token-1";
  startAndCheck();
  EXPECT_EQ(dialogs_.activationToken, "") << "the token is kept for the result of the check";
  find();
  EXPECT_EQ(dialogs_.alerts().back().activationToken, "token-1");
  press("Install Update");
  EXPECT_EQ(dialogs_.alerts().back().activationToken, "");
  report(UpdateFailed{"disk full"});
  EXPECT_EQ(shown(), "Update Error!");
  EXPECT_EQ(dialogs_.alerts().back().activationToken, "");
}

TEST_F(ProcessUpdaterTest, TheWindowWithoutAnUpdateGetsTheActivationTokenOfTheRequest) {
  dialogs_.activationToken = "token-1";
  startAndCheck();
  findNothing();
  EXPECT_EQ(shown(), "You’re up to date!");
  EXPECT_EQ(dialogs_.alerts().back().activationToken, "token-1");
}

TEST_F(ProcessUpdaterTest, DelaysTheInstallationUntilItIsAllowed) {
  delegate_->busy = true;
  startAndCheck();
  find();
  press("Install Update");
  report(UpdateStaged{"200"});
  EXPECT_EQ(runs(), 2U);
  EXPECT_FALSE(controller_->canCheckForUpdates());
  delegate_->proceed();
  delegate_->proceed();
  EXPECT_EQ(runs(), 3U);
  EXPECT_TRUE(isCommand<InstallCommand>());
}

TEST_F(ProcessUpdaterTest, MayOutliveTheTrayAndIsCancelledByTheEndOfItsInput) {
  startAndCheck();
  const auto check = runtime_.launcher.newest();
  EXPECT_EQ(check->options().lifetime, ProcessOptions::Lifetime::independent);
  EXPECT_FALSE(check->inputEnded());
  controller_.reset();
  EXPECT_TRUE(check->inputEnded());
}

TEST_F(ProcessUpdaterTest, CancelsTheDownload) {
  startAndCheck();
  find();
  press("Install Update");
  const auto download = runtime_.launcher.newest();
  press("Cancel");
  EXPECT_TRUE(download->inputEnded());
  EXPECT_TRUE(controller_->canCheckForUpdates());
  EXPECT_EQ(runs(), 2U);
}

TEST_F(ProcessUpdaterTest, ShowsTheProgressOfADownloadAFewTimesASecond) {
  startAndCheck();
  find();
  press("Install Update");
  const auto words = [&] { return dialogs_.alerts().back().progress.value().text; };
  const auto receive = [&](std::int64_t bytes) {
    report(UpdateProgress{.received = bytes, .total = 12'400'000});
  };
  EXPECT_EQ(words(), "0.0 of 1.0 MB");
  receive(3'100'000);
  EXPECT_EQ(words(), "3.1 of 12.4 MB");
  EXPECT_EQ(dialogs_.alerts().back().progress->fraction, 0.25);
  runtime_.advance(249ms);
  receive(6'200'000);
  EXPECT_EQ(words(), "3.1 of 12.4 MB");
  runtime_.advance(1ms);
  EXPECT_EQ(words(), "6.2 of 12.4 MB") << "the last change is drawn even if nothing follows";
  runtime_.advance(10s);
  receive(9'300'000);
  EXPECT_EQ(words(), "9.3 of 12.4 MB");
  receive(12'400'000);
  EXPECT_EQ(words(), "Verifying…") << "the last value is always reported";
  EXPECT_EQ(dialogs_.alerts().back().progress->fraction, std::nullopt);
}

TEST_F(ProcessUpdaterTest, LogsOnlyBeginningAndEndOfADownloadIfNoWindowCanBeShown) {
  startAndCheck();
  find();
  const auto logged = test::logOf([&] {
    press("Install Update");
    dialogs_.failToShow();
    for (int percent = 0; percent <= 100; ++percent) {
      runtime_.advance(1s);
      report(UpdateProgress{.received = percent, .total = 100});
    }
    report(UpdateStaged{"200"});
  });
  EXPECT_EQ(logged,
            "[tray] downloading version 2.0\n"
            "[tray] version 2.0 is verified and ready to install\n"
            "[tray] installing version 2.0\n");
}

TEST_F(ProcessUpdaterTest, ContinuesWithAStagedUpdateSoonAfterTheStart) {
  makeStateDirectory();
  ASSERT_TRUE(createDirectories(files_.staged));
  settings().setLastCheck(now());
  start();
  runtime_.advance(1min);
  ASSERT_EQ(runs(), 1U);
  EXPECT_FALSE(command<CheckCommand>().userInitiated);
  findNothing();
  runtime_.advance(23h);
  EXPECT_EQ(runs(), 1U) << "later checks run once a day";
}

TEST_F(ProcessUpdaterTest, PostponesOrSkipsAnUpdate) {
  startAndCheck();
  find();
  delegate_->take();
  press("Remind Me Later");
  EXPECT_EQ(delegate_->take(), (Told{"attention", "finished"}));
  EXPECT_TRUE(controller_->canCheckForUpdates());
  EXPECT_EQ(settings().skippedVersion(), std::nullopt);
  controller_->checkForUpdates();
  find();
  press("Skip This Version");
  EXPECT_EQ(settings().skippedVersion(), "200");
  runtime_.advance(25h);
  EXPECT_EQ(command<CheckCommand>().skip, std::vector<std::string>{"200"});
  findNothing();
  controller_->checkForUpdates();
  EXPECT_TRUE(command<CheckCommand>().skip.empty()) << "a check that the user asked for shows it";
}

TEST_F(ProcessUpdaterTest, ACriticalUpdateCannotBeSkipped) {
  startAndCheck();
  auto critical = offer_;
  critical.critical = true;
  report(UpdateFound{.offer = critical, .feedDate = 500, .obstacle = {}});
  EXPECT_EQ(dialogs_.alerts().back().buttons,
            (std::vector<std::string>{"Install Update", "Remind Me Later"}));
}

TEST_F(ProcessUpdaterTest, ReportsNoUpdateOrAnErrorToAUserWhoAsked) {
  startAndCheck();
  findNothing();
  EXPECT_EQ(delegate_->take(), Told{"none"});
  EXPECT_EQ(shown(), "You’re up to date!");
  press("OK");
  EXPECT_TRUE(controller_->canCheckForUpdates());
  controller_->checkForUpdates();
  report(UpdateFailed{"The signature of the feed is invalid."});
  EXPECT_EQ(shown(), "Update Error!");
  EXPECT_NE(dialogs_.alerts().back().explanation.find("signature"), std::string::npos);
  press("OK");
  controller_->checkForUpdates();
  find();
  press("Install Update");
  report(UpdateFailed{"The update is shorter than it should be."});
  EXPECT_EQ(shown(), "Update Error!");
  press("OK");
  EXPECT_TRUE(controller_->canCheckForUpdates());
}

TEST_F(ProcessUpdaterTest, TreatsInvalidMessagesAndAnEarlyEndAsFailures) {
  startAndCheck();
  runtime_.launcher.newest()->exit({ExitStatus::Reason::signalled, 9});
  runtime_.settle();
  EXPECT_EQ(shown(), "Update Error!");
  press("OK");
  controller_->checkForUpdates();
  runtime_.launcher.newest()->print({"nonsense"});
  runtime_.settle();
  EXPECT_EQ(shown(), "Update Error!");
  press("OK");
  runtime_.launcher.failWith("updater: No such file or directory");
  controller_->checkForUpdates();
  runtime_.settle();
  EXPECT_NE(dialogs_.alerts().back().explanation.find("No such file"), std::string::npos);
}

TEST_F(ProcessUpdaterTest, OnlyReportsAnUpdateThatItCannotInstall) {
  startAndCheck();
  find("Run: apt upgrade");
  EXPECT_EQ(dialogs_.alerts().back().buttons, std::vector<std::string>{"OK"});
  EXPECT_NE(dialogs_.alerts().back().explanation.find("Run: apt upgrade"), std::string::npos);
  press("OK");
  EXPECT_EQ(runs(), 1U);
}

TEST_F(ProcessUpdaterTest, ChecksOnceADayAndOnlyReminds) {
  start();
  EXPECT_EQ(runs(), 0U);
  runtime_.advance(1min);
  ASSERT_EQ(runs(), 1U);
  EXPECT_FALSE(command<CheckCommand>().userInitiated);
  find();
  EXPECT_EQ(delegate_->take(), (Told{"found 2.0", "reminded", "finished"}));
  EXPECT_TRUE(dialogs_.alerts().empty());
  EXPECT_EQ(runs(), 1U) << "nothing is downloaded without a request";
  runtime_.advance(24h);
  EXPECT_EQ(runs(), 1U);
  runtime_.advance(30min);
  EXPECT_EQ(runs(), 2U);
}

TEST_F(ProcessUpdaterTest, RetriesSoonerAfterAFailureAndOnlyLogsIt) {
  start();
  runtime_.advance(1min);
  report(UpdateFailed{"The server cannot be reached."});
  EXPECT_TRUE(dialogs_.alerts().empty());
  EXPECT_EQ(delegate_->take(), Told{"finished"});
  EXPECT_EQ(settings().lastCheck(), std::nullopt);
  runtime_.advance(89min);
  EXPECT_EQ(runs(), 1U);
  runtime_.advance(1min);
  EXPECT_EQ(runs(), 2U);
}

TEST_F(ProcessUpdaterTest, InstallsAutomaticallyIfConfigured) {
  world_.directory().write("config/com.zephyl.tray/defaults.json",
                           R"({"SUAutomaticallyUpdate": 1})");
  start();
  runtime_.advance(1min);
  find();
  EXPECT_EQ(delegate_->take(), (Told{"found 2.0", "reminded"}));
  ASSERT_TRUE(isCommand<DownloadCommand>());
  report(UpdateProgress{.received = 10, .total = 100});
  EXPECT_TRUE(dialogs_.alerts().empty()) << "no window was requested";
  report(UpdateStaged{"200"});
  ASSERT_TRUE(isCommand<InstallCommand>());
  report(UpdateFailed{"The new version does not work on this machine."});
  EXPECT_TRUE(dialogs_.alerts().empty());
  EXPECT_TRUE(controller_->canCheckForUpdates());
  EXPECT_EQ(relaunches_, 0);
}

TEST_F(ProcessUpdaterTest, OffersAnUpdateAgainUntilItWasSeen) {
  startAndCheck();
  find();
  delegate_->take();
  dialogs_.failToShow();
  runtime_.settle();
  EXPECT_EQ(delegate_->take(), Told{"finished"});
  EXPECT_TRUE(controller_->canCheckForUpdates());
}

TEST_F(ProcessUpdaterTest, NotifiesObserversWhenChecksArePossible) {
  startAndCheck();
  std::vector<bool> values;
  auto observation =
      controller_->observeCanCheckForUpdates([&](bool can) { values.push_back(can); });
  findNothing();
  press("OK");
  EXPECT_EQ(values, std::vector<bool>{true});
  controller_->checkForUpdates();
  EXPECT_EQ(values, (std::vector<bool>{true, false}));
  observation.reset();
  findNothing();
  press("OK");
  EXPECT_EQ(values.size(), 2U);
}

TEST_F(ProcessUpdaterTest, ConfirmsANewVersionAfterItHasRunForAWhile) {
  makeStateDirectory();
  ASSERT_TRUE(writeMarker(files_.trial, {.version = "1.0", .displayVersion = "1.0"}));
  start();
  runtime_.advance(999ms);
  EXPECT_TRUE(fileExists(files_.trial));
  runtime_.advance(1ms);
  EXPECT_FALSE(fileExists(files_.trial));
}

TEST_F(ProcessUpdaterTest, ReportsOnceAVersionThatWasRolledBackAndDoesNotRetryIt) {
  makeStateDirectory();
  ASSERT_TRUE(writeMarker(files_.failed, {.version = "200", .displayVersion = "2.0"}));
  start();
  EXPECT_EQ(shown(), "Zephyl 2.0 could not be started");
  press("OK");
  controller_.reset();
  start();
  EXPECT_TRUE(dialogs_.alerts().empty());
  runtime_.advance(1min);
  EXPECT_TRUE(command<CheckCommand>().skip.empty());
  EXPECT_EQ(command<CheckCommand>().failed.value().version, "200");
}

TEST_F(ProcessUpdaterTest, IsUnavailableWithoutItsProgram) {
  const auto factory = ProcessUpdater::factory(
      runtime_.runtime(), dialogs_,
      {.program = "/nonexistent", .prefix = prefix_, .settings = settings()});
  EXPECT_EQ(factory(delegate_), nullptr);
}

TEST(DownloadProgress, IsFormattedWithSuitableUnits) {
  const auto words = [](std::int64_t received, std::int64_t total) {
    return alerts::downloadProgress({.received = received, .total = total}).text;
  };
  EXPECT_EQ(words(0, 12'345'678), "0.0 of 12.4 MB");
  EXPECT_EQ(words(12'345'677, 12'345'678), "12.3 of 12.4 MB");
  EXPECT_EQ(words(999'999, 1'000'000), "0.9 of 1.0 MB");
  EXPECT_EQ(words(4'999, 812'345), "4 of 813 kB");
  EXPECT_EQ(words(1, 2), "0 of 1 kB");
  EXPECT_EQ(words(3'100'000, 0), "3.1 MB");
  EXPECT_EQ(alerts::downloadProgress({.received = 5, .total = 0}).fraction, std::nullopt);
  EXPECT_EQ(words(5, 5), "Verifying…");
}

TEST(ProcessUpdaterPaths, AreFoundFromTheExecutable) {
  const test::TemporaryDirectory directory;
  const Bundle bundle(directory.write("bin/zephyl-tray", "", true));
  EXPECT_EQ(installationPrefix(bundle), directory.path());
  EXPECT_EQ(updaterProgram(bundle), directory / "libexec/zephyl-tray/zephyl-tray-updater");
  const auto beside = directory.write("bin/zephyl-tray-updater", "", true);
  EXPECT_EQ(updaterProgram(bundle), beside);
  EXPECT_EQ(installationPrefix(Bundle(directory / "build/zephyl-tray")), "");
}

}  // namespace
}  // namespace zephyl
