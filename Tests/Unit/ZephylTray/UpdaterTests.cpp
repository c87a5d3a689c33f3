#include "Helpers/Updates/Client/Updater.hpp"

#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "Support/FakeDesktop.hpp"
#include "Support/FakeUpdateFramework.hpp"
#include "Support/TestRuntime.hpp"
#include "Support/TrayWorld.hpp"
#include "System/Files/Bundle.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

const UpdateItem newVersion{.displayVersionString = "2.1", .versionString = "2100"};

/// An empty bundle until a test writes its information.
class UpdaterBundleTest : public ::testing::Test {
 protected:
  UpdaterBundleTest() {
    Bundle::setMain(Bundle(world_.directory().write("prefix/bin/zephyl-tray", "", true)));
    writeInformation("{}");
  }
  ~UpdaterBundleTest() override { Bundle::setMain(Bundle(std::nullopt)); }
  UpdaterBundleTest(const UpdaterBundleTest&) = delete;
  UpdaterBundleTest& operator=(const UpdaterBundleTest&) = delete;

  void writeInformation(const std::string& json) {
    world_.directory().write("prefix/share/zephyl-tray/Info.json", json);
  }
  void makeAvailable() {
    writeInformation(R"({"SUFeedURL": "https://updates.example/feed", "SUPublicEDKey": "key"})");
  }

  test::TrayWorld world_;
  test::ScopedVariable version_{"ZEPHYL_TRAY_VERSION"};
};

class UpdaterTest : public UpdaterBundleTest {
 protected:
  std::shared_ptr<Updater> make(UpdaterFactory factory) {
    auto updater = std::make_shared<Updater>(runtime_.runtime(), desktop_, std::move(factory));
    updater->onStateChange = [this] {
      EXPECT_TRUE(runtime_.mainLoop.isCurrent());
      ++stateChanges_;
    };
    return updater;
  }

  /// Makes updates available. `busy_` is whether the agent is busy.
  void start() {
    makeAvailable();
    updater_ = make(framework_.factory());
    updater_->isAgentBusy = [this] { return busy_.load(); };
    updater_->start();
  }

  /// Runs `work` on another thread, like a framework with its own thread.
  static void onAnotherThread(const std::function<void()>& work) { std::thread(work).join(); }

  /// Asks on the framework's thread whether to postpone the relaunch, and returns the answer.
  bool asksToRelaunch(const Task& proceed) {
    bool postponed = false;
    onAnotherThread([&] { postponed = updater_->shouldPostponeRelaunch(newVersion, proceed); });
    return postponed;
  }

  test::TestRuntime runtime_;
  test::FakeDesktop desktop_;
  test::FakeUpdateFramework framework_;
  std::atomic<bool> busy_ = false;
  int stateChanges_ = 0;
  std::shared_ptr<Updater> updater_;
};

// The bundle

TEST_F(UpdaterBundleTest, IsAvailableOnlyWithAFeedAndAKey) {
  for (const auto* information :
       {"{}", "[]", "no JSON", R"({"SUFeedURL": "https://updates.example/feed"})",
        R"({"SUPublicEDKey": "key"})", R"({"SUFeedURL": "https://a", "SUPublicEDKey": ""})",
        R"({"SUFeedURL": "", "SUPublicEDKey": "key"})",
        R"({"SUFeedURL": true, "SUPublicEDKey": "key"})",
        R"({"SUFeedURL": "https://a", "SUPublicEDKey": 7})",
        R"({"SUFeedURL": "https://a", "SUPublicEDKey": []})",
        R"({"SUFeedURL": "https://a", "SUPublicEDKey": [""]})",
        R"({"SUFeedURL": "https://a", "SUPublicEDKey": ["key", 7]})",
        R"({"SUFeedURL": ["https://a"], "SUPublicEDKey": "key"})"}) {
    writeInformation(information);
    EXPECT_FALSE(Updater::isAvailable()) << information;
  }
  for (const auto* keys : {R"("key")", R"("key another")", R"(["key"])", R"(["key", "another"])"}) {
    writeInformation(std::string(R"({"SUFeedURL": "https://a", "SUPublicEDKey": )") + keys + "}");
    EXPECT_TRUE(Updater::isAvailable()) << keys;
  }
  makeAvailable();
  EXPECT_TRUE(Updater::isAvailable());
  Bundle::setMain(Bundle(std::nullopt));
  EXPECT_FALSE(Updater::isAvailable());
}

TEST_F(UpdaterBundleTest, ReadsTheVersionFromTheBundleThenFromTheEnvironment) {
  EXPECT_EQ(Updater::currentVersion(), "unknown");
  const test::ScopedVariable variable("ZEPHYL_TRAY_VERSION", "1.9-dev");
  EXPECT_EQ(Updater::currentVersion(), "1.9-dev");
  writeInformation(R"({"CFBundleShortVersionString": ""})");
  EXPECT_EQ(Updater::currentVersion(), "1.9-dev");
  writeInformation(R"({"CFBundleShortVersionString": 2})");
  EXPECT_EQ(Updater::currentVersion(), "1.9-dev");
  writeInformation(R"({"CFBundleShortVersionString": "2.0"})");
  EXPECT_EQ(Updater::currentVersion(), "2.0");
}

TEST_F(UpdaterBundleTest, HasNoVersionWhenTheVariableIsEmpty) {
  const test::ScopedVariable variable("ZEPHYL_TRAY_VERSION", "");
  EXPECT_EQ(Updater::currentVersion(), "unknown");
}

// Starting

TEST_F(UpdaterTest, MakesNoControllerForABundleWithAnEmptyKey) {
  writeInformation(R"({"SUFeedURL": "https://updates.example/feed", "SUPublicEDKey": ""})");
  updater_ = make(framework_.factory());
  updater_->start();
  EXPECT_EQ(framework_.starts, 0);
  framework_.canCheck = true;
  EXPECT_FALSE(updater_->canCheckForUpdates());
  updater_->checkForUpdates();
  EXPECT_EQ(framework_.checks, 0);
}

TEST_F(UpdaterTest, HasNoControllerIfTheFrameworkFails) {
  makeAvailable();
  framework_.fails = true;
  for (const auto& updater : {make(nullptr), make(framework_.factory())}) {
    updater->start();
    EXPECT_FALSE(updater->canCheckForUpdates());
    updater->checkForUpdates();
    updater->agentDidUpdateActivity(false);
    runtime_.settle();
  }
  EXPECT_EQ(framework_.starts, 1);
  EXPECT_EQ(framework_.checks, 0);
  EXPECT_EQ(stateChanges_, 0);
}

TEST_F(UpdaterTest, StartsTheFrameworkOnceAsItsDelegate) {
  start();
  updater_->start();
  EXPECT_EQ(framework_.starts, 1);
  EXPECT_TRUE(framework_.running);
  EXPECT_EQ(framework_.delegate(), updater_);
}

TEST_F(UpdaterTest, ReportsEachChangeOfWhetherItCanCheck) {
  start();
  EXPECT_FALSE(updater_->canCheckForUpdates());
  framework_.setCanCheck(true);
  EXPECT_EQ(stateChanges_, 0) << "before the main thread handles it";
  runtime_.settle();
  EXPECT_EQ(stateChanges_, 1);
  EXPECT_TRUE(updater_->canCheckForUpdates());
  onAnotherThread([&] { framework_.setCanCheck(false); });
  EXPECT_EQ(stateChanges_, 1);
  runtime_.settle();
  EXPECT_EQ(stateChanges_, 2);
  EXPECT_FALSE(updater_->canCheckForUpdates());
}

TEST_F(UpdaterTest, EndsTheObservationAndThenTheFrameworkWithItself) {
  start();
  ASSERT_TRUE(framework_.isObserved());
  updater_.reset();
  EXPECT_FALSE(framework_.isObserved());
  EXPECT_FALSE(framework_.running);
  EXPECT_FALSE(framework_.endedWhileObserved);
  EXPECT_EQ(framework_.delegate(), nullptr);
}

// Finding and announcing

TEST_F(UpdaterTest, ReportsAFoundUpdate) {
  start();
  onAnotherThread([&] { framework_.delegate()->didFindValidUpdate(newVersion); });
  EXPECT_EQ(updater_->pendingVersion(), std::nullopt);
  EXPECT_EQ(stateChanges_, 0);
  runtime_.settle();
  EXPECT_EQ(updater_->pendingVersion(), "2.1");
  EXPECT_EQ(stateChanges_, 1);
}

TEST_F(UpdaterTest, ForgetsAnUpdateThatIsNotFoundAgain) {
  start();
  updater_->didFindValidUpdate(newVersion);
  runtime_.settle();
  onAnotherThread([&] { framework_.delegate()->didNotFindUpdate(); });
  EXPECT_EQ(updater_->pendingVersion(), "2.1");
  runtime_.settle();
  EXPECT_EQ(updater_->pendingVersion(), std::nullopt);
  EXPECT_EQ(stateChanges_, 2);
}

TEST_F(UpdaterTest, ForgetsAFoundUpdateWhenTheUserChecks) {
  start();
  updater_->didFindValidUpdate(newVersion);
  runtime_.settle();
  updater_->checkForUpdates();
  EXPECT_EQ(framework_.checks, 1);
  EXPECT_EQ(updater_->pendingVersion(), std::nullopt);
}

TEST_F(UpdaterTest, LetsTheFrameworkDecideWhetherToShowAScheduledUpdate) {
  start();
  EXPECT_TRUE(framework_.delegate()->supportsGentleScheduledUpdateReminders());
  EXPECT_TRUE(framework_.delegate()->shouldHandleShowingScheduledUpdate(newVersion, true));
  EXPECT_FALSE(framework_.delegate()->shouldHandleShowingScheduledUpdate(newVersion, false));
}

TEST_F(UpdaterTest, AnnouncesAnUpdateOfAScheduledCheck) {
  start();
  for (const bool handled : {false, true}) {
    desktop_.notifications.clear();
    onAnotherThread(
        [&] { framework_.delegate()->willHandleShowingUpdate(handled, newVersion, {false}); });
    EXPECT_TRUE(desktop_.notifications.empty()) << "the desktop belongs to the main thread";
    runtime_.settle();
    EXPECT_EQ(desktop_.notifications,
              (std::vector<Notification>{{.identifier = "zephyl-tray-update-2100",
                                          .title = "Zephyl update available",
                                          .body = "Version 2.1 is ready to install.",
                                          .actionTitle = ""}}));
  }
}

TEST_F(UpdaterTest, DoesNotAnnounceAnUpdateThatTheUserAskedFor) {
  start();
  framework_.delegate()->willHandleShowingUpdate(true, newVersion, {.userInitiated = true});
  runtime_.settle();
  EXPECT_TRUE(desktop_.notifications.empty());
}

TEST_F(UpdaterTest, WithdrawsTheAnnouncementWhenTheUserHasSeenTheUpdate) {
  start();
  updater_->didFindValidUpdate(newVersion);
  updater_->willHandleShowingUpdate(false, newVersion, {});
  updater_->willHandleShowingUpdate(false, {.displayVersionString = "2.1", .versionString = "2101"},
                                    {});
  runtime_.settle();
  ASSERT_EQ(desktop_.notifications.size(), 2U);
  stateChanges_ = 0;
  onAnotherThread([&] { framework_.delegate()->didReceiveUserAttention(newVersion); });
  EXPECT_EQ(updater_->pendingVersion(), "2.1");
  EXPECT_EQ(desktop_.notifications.size(), 2U);
  runtime_.settle();
  ASSERT_EQ(desktop_.notifications.size(), 1U);
  EXPECT_EQ(desktop_.notifications[0].identifier, "zephyl-tray-update-2101");
  EXPECT_EQ(updater_->pendingVersion(), std::nullopt);
  EXPECT_EQ(stateChanges_, 1);
}

TEST_F(UpdaterTest, ReportsTheEndOfAnUpdateSession) {
  start();
  onAnotherThread([&] { framework_.delegate()->willFinishUpdateSession(); });
  EXPECT_EQ(stateChanges_, 0);
  runtime_.settle();
  EXPECT_EQ(stateChanges_, 1);
}

// Waiting for the agent

TEST_F(UpdaterTest, RelaunchesAtOnceWhileTheAgentIsIdle) {
  start();
  EXPECT_FALSE(asksToRelaunch([] { ADD_FAILURE() << "nothing waits for it"; }));
  EXPECT_FALSE(updater_->hasPostponedInstall());
  updater_->agentDidUpdateActivity(false);
  runtime_.settle();
  EXPECT_EQ(stateChanges_, 0);
}

TEST_F(UpdaterTest, RelaunchesAtOnceWithoutAnAgent) {
  start();
  updater_->isAgentBusy = nullptr;
  EXPECT_FALSE(asksToRelaunch([] { ADD_FAILURE() << "nothing waits for it"; }));
  EXPECT_FALSE(updater_->hasPostponedInstall());
}

TEST_F(UpdaterTest, ForgetsAPostponedInstallationThatWasAbandoned) {
  start();
  busy_ = true;
  EXPECT_TRUE(asksToRelaunch([] { ADD_FAILURE() << "the update was withdrawn"; }));
  runtime_.settle();
  framework_.delegate()->willFinishUpdateSession();
  EXPECT_TRUE(updater_->hasPostponedInstall());
  framework_.delegate()->didAbandonRelaunch();
  EXPECT_FALSE(updater_->hasPostponedInstall());
  updater_->agentDidUpdateActivity(false);
  runtime_.settle();
}

TEST_F(UpdaterTest, PostponesTheRelaunchWhileTheAgentIsBusy) {
  start();
  busy_ = true;
  int installs = 0;
  EXPECT_TRUE(asksToRelaunch([&] { ++installs; }));
  EXPECT_TRUE(updater_->hasPostponedInstall());
  EXPECT_EQ(stateChanges_, 0);
  runtime_.settle();
  EXPECT_EQ(stateChanges_, 1);
  updater_->agentDidUpdateActivity(true);
  runtime_.advance(10000h);
  EXPECT_TRUE(updater_->hasPostponedInstall());
  EXPECT_EQ(installs, 0);
  EXPECT_EQ(stateChanges_, 1);
}

TEST_F(UpdaterTest, ContinuesAPostponedInstallOnceWhenTheAgentIsIdle) {
  start();
  busy_ = true;
  std::vector<std::string> events;
  updater_->onStateChange = [&] { events.emplace_back("state change"); };
  EXPECT_TRUE(asksToRelaunch([&] {
    EXPECT_TRUE(runtime_.mainLoop.isCurrent());
    EXPECT_FALSE(updater_->hasPostponedInstall()) << "cleared first";
    updater_->agentDidUpdateActivity(false);  // nothing was postponed
    events.emplace_back("install");
  }));
  runtime_.settle();
  events.clear();
  busy_ = false;
  updater_->agentDidUpdateActivity(false);
  runtime_.settle();
  updater_->agentDidUpdateActivity(false);
  runtime_.settle();
  EXPECT_EQ(events, (std::vector<std::string>{"install", "state change"}));
}

TEST_F(UpdaterTest, PostponesAgainWhenAskedAgain) {
  start();
  busy_ = true;
  std::vector<int> installed;
  EXPECT_TRUE(asksToRelaunch([&] { installed.push_back(1); }));
  EXPECT_TRUE(asksToRelaunch([&] { installed.push_back(2); }));
  runtime_.settle();
  updater_->agentDidUpdateActivity(false);
  EXPECT_EQ(installed, std::vector<int>{2}) << "the newest request is current";
  EXPECT_TRUE(asksToRelaunch([&] { installed.push_back(3); }));
  EXPECT_TRUE(updater_->hasPostponedInstall());
}

TEST_F(UpdaterTest, DoesNotMissAnAgentThatBecomesIdleWhileTheFrameworkAsks) {
  start();
  busy_ = true;
  int installs = 0;
  updater_->isAgentBusy = [&] {
    const bool was = busy_.exchange(false);
    if (was) updater_->agentDidUpdateActivity(false);  // the last record for a long time
    return was;
  };
  EXPECT_TRUE(updater_->shouldPostponeRelaunch(newVersion, [&] { ++installs; }));
  EXPECT_EQ(installs, 0);
  runtime_.settle();
  EXPECT_EQ(installs, 1);
  EXPECT_FALSE(updater_->hasPostponedInstall());
  EXPECT_EQ(stateChanges_, 1);
}

// Threads

TEST_F(UpdaterTest, SurvivesCallbacksFromManyThreadsAtOnce) {
  start();
  constexpr int threads = 4;
  constexpr int rounds = 500;
  std::atomic<int> postponed = 0;
  std::atomic<int> installed = 0;
  std::vector<std::thread> frameworks;
  frameworks.reserve(threads);
  for (int i = 0; i < threads; ++i) {
    frameworks.emplace_back([&] {
      const auto delegate = framework_.delegate();
      for (int round = 0; round < rounds; ++round) {
        delegate->didFindValidUpdate(newVersion);
        delegate->willHandleShowingUpdate(false, newVersion, {});
        if (delegate->shouldPostponeRelaunch(newVersion, [&] { ++installed; })) ++postponed;
        delegate->didReceiveUserAttention(newVersion);
        delegate->willFinishUpdateSession();
      }
    });
  }
  for (int round = 0; round < rounds; ++round) {
    busy_ = round % 2 == 0;
    updater_->agentDidUpdateActivity(busy_);
    runtime_.mainLoop.runPending();
  }
  for (auto& framework : frameworks) framework.join();
  busy_ = false;
  updater_->agentDidUpdateActivity(false);
  runtime_.settle();
  EXPECT_LE(installed, postponed);
  EXPECT_EQ(installed > 0, postponed > 0);
  EXPECT_FALSE(updater_->hasPostponedInstall());
  EXPECT_EQ(updater_->pendingVersion(), std::nullopt);
  EXPECT_TRUE(desktop_.notifications.empty());
}

TEST_F(UpdaterTest, IgnoresPendingEventsAfterItsDestruction) {
  start();
  busy_ = true;
  updater_->didFindValidUpdate(newVersion);
  updater_->willHandleShowingUpdate(false, newVersion, {});
  EXPECT_TRUE(updater_->shouldPostponeRelaunch(newVersion, [] { ADD_FAILURE() << "installed"; }));
  framework_.setCanCheck(true);
  updater_.reset();
  runtime_.settle();
  EXPECT_TRUE(desktop_.notifications.empty());
  EXPECT_EQ(stateChanges_, 0);
}

}  // namespace
}  // namespace zephyl
