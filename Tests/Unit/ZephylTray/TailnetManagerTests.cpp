#include "ZephylTray/Tailnet/TailnetManager.hpp"

#include <algorithm>
#include <filesystem>

#include <gtest/gtest.h>

#include "Support/TestRuntime.hpp"
#include "Support/TrayWorld.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

ServerEntry namedServer(const std::string& id, const std::string& label) {
  return {.id = id, .label = label, .tailnetFingerprint = "f" + id, .enabled = true};
}

/// A launcher with which each launch takes as long as the manager may start without a pause.
class SlowLauncher final : public ProcessLauncher {
 public:
  explicit SlowLauncher(test::TestRuntime& runtime) : runtime_(runtime) {}

  [[nodiscard]] Result<std::shared_ptr<ChildProcess>> launch(ProcessOptions options) override {
    runtime_.clock.advance(TailnetManager::startingTime);
    return runtime_.launcher.launch(std::move(options));
  }

 private:
  test::TestRuntime& runtime_;
};

class TailnetManagerTest : public ::testing::Test {
 protected:
  TailnetManagerTest() {
    world_.addProgram("packages/tailnet-client/tailscaled");
    client_ = world_.addProgram("packages/tailnet-client/zephyl-tailnet");
    manager_->onStateChange = [this] { ++stateChanges_; };
    manager_->onAddressLearned = [this] { ++addressesLearned_; };
    manager_->onTargetUnresolved = [this](const ServerEntry& from, const std::string& target) {
      unresolved_.push_back(from.id + " " + target);
    };
  }

  void useSlowLauncher() {
    manager_ = std::make_shared<TailnetManager>(
        Runtime{runtime_.mainLoop, runtime_.reactor, runtime_.pool, runtime_.clock, slowLauncher_});
  }

  std::vector<std::string> ids() {
    std::vector<std::string> all;
    for (const auto& instance : manager_->instances()) all.push_back(instance->server().id);
    return all;
  }

  std::shared_ptr<test::FakeChild> child(std::size_t index) {
    return runtime_.launcher.children().at(index);
  }
  std::ptrdiff_t runningChildren() {
    return std::ranges::count_if(runtime_.launcher.children(),
                                 [](const auto& each) { return each->isRunning(); });
  }
  std::size_t launches() { return runtime_.launcher.children().size(); }

  test::TrayWorld world_;
  test::TestRuntime runtime_;
  SlowLauncher slowLauncher_{runtime_};
  std::string client_;
  std::shared_ptr<TailnetManager> manager_ = std::make_shared<TailnetManager>(runtime_.runtime());
  int stateChanges_ = 0;
  int addressesLearned_ = 0;
  std::vector<std::string> unresolved_;
};

TEST_F(TailnetManagerTest, HasAnInstanceForEveryServerThatIsEnabledAndJoined) {
  auto disabled = namedServer("b", "B");
  disabled.enabled = false;
  auto unjoined = namedServer("c", "C");
  unjoined.tailnetFingerprint = "";
  auto neverJoined = namedServer("d", "D");
  neverJoined.tailnetFingerprint.reset();
  Servers::replaceAll({unjoined, disabled, neverJoined, namedServer("a", "A")});
  manager_->syncWithStore();
  EXPECT_EQ(ids(), std::vector<std::string>{"a"});
  EXPECT_EQ(manager_->primary()->server().id, "a");
  EXPECT_EQ(launches(), 1U);
}

TEST_F(TailnetManagerTest, StartsServersInTheRegistrysOrderAndTheFirstIsPrimary) {
  Servers::replaceAll({namedServer("b", "B"), namedServer("c", "C"), namedServer("a", "A")});
  EXPECT_EQ(manager_->primary(), nullptr);
  manager_->syncWithStore();
  ASSERT_EQ(launches(), 3U);
  for (const auto& [index, id] : {std::pair{0U, "b"}, {1U, "c"}, {2U, "a"}}) {
    const auto& arguments = child(index)->options().arguments;
    EXPECT_NE(std::ranges::find(arguments, "--statedir=" + Servers::tailnetStateDir(id)),
              arguments.end())
        << id;
  }
  EXPECT_EQ(manager_->primary()->server().id, "b");
  manager_->retire("b");
  EXPECT_EQ(manager_->primary(), nullptr) << "no other agent is launched in its place";
}

TEST_F(TailnetManagerTest, StartsManyServersInPiecesSoThatTheMainThreadGoesOn) {
  useSlowLauncher();
  Servers::replaceAll({namedServer("b", "B"), namedServer("c", "C"), namedServer("a", "A")});
  manager_->syncWithStore();
  EXPECT_EQ(launches(), 1U);
  EXPECT_EQ(ids().size(), 3U);
  for (const auto started : {2U, 3U, 3U}) {
    runtime_.mainLoop.runPending();
    EXPECT_EQ(launches(), started);
  }
  const auto& arguments = child(2)->options().arguments;
  EXPECT_NE(std::ranges::find(arguments, "--statedir=" + Servers::tailnetStateDir("a")),
            arguments.end());
}

TEST_F(TailnetManagerTest, ReportsTheStartOfManyServersOnce) {
  useSlowLauncher();
  manager_->onStateChange = [this] { ++stateChanges_; };
  Servers::replaceAll({namedServer("a", "A"), namedServer("b", "B"), namedServer("c", "C")});
  manager_->syncWithStore();
  for (int i = 0; i < 3; ++i) runtime_.settle();
  EXPECT_EQ(launches(), 3U);
  EXPECT_EQ(stateChanges_, 1);
}

TEST_F(TailnetManagerTest, AServerThatIsRetiredBeforeItsTurnIsNotStarted) {
  useSlowLauncher();
  Servers::replaceAll({namedServer("a", "A"), namedServer("b", "B"), namedServer("c", "C")});
  manager_->syncWithStore();
  manager_->retire("b");
  runtime_.settle();
  EXPECT_EQ(launches(), 2U);
  EXPECT_EQ(ids(), (std::vector<std::string>{"a", "c"}));
}

TEST_F(TailnetManagerTest, ASyncBeforeAllAreStartedStartsEachOnce) {
  useSlowLauncher();
  Servers::replaceAll({namedServer("a", "A"), namedServer("b", "B"), namedServer("c", "C")});
  manager_->syncWithStore();
  manager_->syncWithStore();
  for (int i = 0; i < 3; ++i) runtime_.settle();
  EXPECT_EQ(launches(), 3U);
}

TEST_F(TailnetManagerTest, StoppingAllStartsNoneOfThoseThatWereLeft) {
  useSlowLauncher();
  Servers::replaceAll({namedServer("a", "A"), namedServer("b", "B")});
  manager_->syncWithStore();
  manager_->stopAll();
  runtime_.settle();
  EXPECT_EQ(launches(), 1U);
  EXPECT_EQ(runningChildren(), 0);
}

TEST_F(TailnetManagerTest, DisablingRemovesTheInstanceAndEnablingUsesTheCurrentEntry) {
  Servers::replaceAll({namedServer("a", "A")});
  manager_->syncWithStore();
  const auto first = manager_->find("a");
  Servers::update("a", [](ServerEntry& entry) { entry.enabled = false; });
  manager_->syncWithStore();
  EXPECT_FALSE(child(0)->isRunning());
  EXPECT_EQ(manager_->find("a"), nullptr);
  EXPECT_EQ(manager_->primary(), nullptr);
  Servers::update("a", [](ServerEntry& entry) {
    entry.enabled = true;
    entry.address = "http://new";
  });
  manager_->syncWithStore();
  EXPECT_NE(manager_->find("a"), first);
  EXPECT_EQ(manager_->find("a")->server().address, "http://new");
}

TEST_F(TailnetManagerTest, ASyncDoesNotChangeARunningPair) {
  Servers::replaceAll({namedServer("a", "A")});
  manager_->syncWithStore();
  runtime_.advance(1s);
  Servers::update("a", [](ServerEntry& entry) { entry.address = "http://new"; });
  manager_->syncWithStore();
  EXPECT_EQ(launches(), 2U);
  EXPECT_EQ(manager_->find("a")->server().address, std::nullopt);
  EXPECT_TRUE(manager_->anyRunning());
}

TEST_F(TailnetManagerTest, ASyncRetriesAStalledTailnetAtOnce) {
  Servers::replaceAll({namedServer("a", "A")});
  runtime_.launcher.failWith("no memory");
  manager_->syncWithStore();
  runtime_.launcher.failWith(std::nullopt);
  manager_->syncWithStore();
  EXPECT_EQ(launches(), 1U);
}

TEST_F(TailnetManagerTest, ASyncRetriesAFailedEnrolment) {
  Servers::replaceAll({namedServer("a", "A")});
  manager_->syncWithStore();
  child(0)->print({"ENROLMENT FAILED: key expired"});
  runtime_.settle();
  ASSERT_FALSE(child(0)->isRunning());
  manager_->syncWithStore();
  EXPECT_EQ(launches(), 2U);
}

TEST_F(TailnetManagerTest, WithAProgramMissingASyncChangesNothing) {
  Servers::replaceAll({namedServer("a", "A")});
  manager_->syncWithStore();
  std::filesystem::remove(client_);
  Servers::update("a", [](ServerEntry& entry) { entry.enabled = false; });
  manager_->syncWithStore();
  EXPECT_EQ(ids(), std::vector<std::string>{"a"});
  EXPECT_TRUE(child(0)->isRunning());
}

TEST_F(TailnetManagerTest, MergesTheLogsUnderHeadingsCapitalLettersFirst) {
  Servers::replaceAll(
      {namedServer("1", "beta"), namedServer("2", "Alpha"), namedServer("3", "Silent")});
  manager_->syncWithStore();
  child(0)->print({"b"});
  child(1)->print({"a"});
  runtime_.settle();
  EXPECT_EQ(manager_->recentLog(), (std::vector<std::string>{"=== Alpha ===", "[tailscaled] a",
                                                             "=== beta ===", "[tailscaled] b"}));
}

TEST_F(TailnetManagerTest, OneLogHasNoHeadingAndNoLogsGiveAnEmptyText) {
  EXPECT_TRUE(manager_->recentLog().empty());
  Servers::replaceAll({namedServer("1", "beta")});
  manager_->syncWithStore();
  child(0)->print({"b"});
  runtime_.settle();
  EXPECT_EQ(manager_->recentLog(), std::vector<std::string>{"[tailscaled] b"});
}

TEST_F(TailnetManagerTest, AddressesLearnedWithinASecondAreOneNotification) {
  Servers::replaceAll({namedServer("1", "A"), namedServer("2", "B"), namedServer("3", "C")});
  manager_->syncWithStore();
  for (int i = 0; i < 3; ++i) {
    child(static_cast<std::size_t>(i))->print({"target resolved to http://" + std::to_string(i)});
  }
  runtime_.advance(999ms);
  EXPECT_EQ(addressesLearned_, 0);
  runtime_.advance(1ms);
  EXPECT_EQ(addressesLearned_, 1);
  child(0)->print({"target resolved to http://other"});
  runtime_.advance(1s);
  EXPECT_EQ(addressesLearned_, 2);
}

TEST_F(TailnetManagerTest, ReportsTheServerOfAnUnresolvedTarget) {
  Servers::replaceAll({namedServer("1", "A")});
  manager_->syncWithStore();
  child(0)->print({"TARGET UNRESOLVED: http://lab"});
  runtime_.settle();
  EXPECT_EQ(unresolved_, std::vector<std::string>{"1 http://lab"});
}

TEST_F(TailnetManagerTest, SuccessiveChangesAreOneNotification) {
  Servers::replaceAll({namedServer("1", "A"), namedServer("2", "B"), namedServer("3", "C")});
  manager_->syncWithStore();
  runtime_.settle();
  EXPECT_EQ(stateChanges_, 1);
}

TEST_F(TailnetManagerTest, ARetiredInstanceEndsAsynchronously) {
  Servers::replaceAll({namedServer("a", "A"), namedServer("b", "B")});
  manager_->syncWithStore();
  runtime_.advance(1s);
  for (const auto& each : runtime_.launcher.children()) each->ignoreTermination();
  int retired = 0;
  Servers::update("a", [](ServerEntry& entry) { entry.enabled = false; });
  manager_->syncWithStore();
  manager_->whenRetired([&] { ++retired; });
  EXPECT_EQ(ids(), std::vector<std::string>{"b"});
  runtime_.advance(2999ms);
  EXPECT_EQ(retired, 0);
  EXPECT_EQ(runningChildren(), 4);
  runtime_.advance(1ms);
  EXPECT_EQ(runningChildren(), 3) << "the daemon's grace period has not expired";
  runtime_.advance(3s);
  EXPECT_EQ(runningChildren(), 2);
  EXPECT_EQ(retired, 1);
}

TEST_F(TailnetManagerTest, WithoutRetiredInstancesThereIsNothingToWaitFor) {
  int retired = 0;
  manager_->whenRetired([&] { ++retired; });
  EXPECT_EQ(retired, 0) << "never within the call";
  runtime_.settle();
  EXPECT_EQ(retired, 1);
}

TEST_F(TailnetManagerTest, AServersNextInstanceStartsAfterTheChildrenOfTheLastOneHaveEnded) {
  Servers::replaceAll({namedServer("a", "A")});
  manager_->syncWithStore();
  runtime_.advance(1s);
  child(0)->ignoreTermination();
  Servers::update("a", [](ServerEntry& entry) { entry.enabled = false; });
  manager_->syncWithStore();
  Servers::update("a", [](ServerEntry& entry) { entry.enabled = true; });
  manager_->syncWithStore();
  runtime_.advance(2999ms);
  EXPECT_EQ(launches(), 2U);
  runtime_.advance(2s);
  EXPECT_EQ(launches(), 4U);
  EXPECT_FALSE(child(0)->isRunning());
  EXPECT_TRUE(manager_->anyRunning());
}

TEST_F(TailnetManagerTest, ASuspendedServerIsNotStarted) {
  Servers::replaceAll({namedServer("a", "A")});
  manager_->syncWithStore();
  manager_->suspend("a");
  manager_->syncWithStore();
  runtime_.advance(10s);
  EXPECT_EQ(launches(), 1U);
  EXPECT_EQ(runningChildren(), 0);
  manager_->resume("a");
  manager_->syncWithStore();
  EXPECT_EQ(launches(), 2U);
}

TEST_F(TailnetManagerTest, StoppingAllIncludesEndingInstances) {
  Servers::replaceAll({namedServer("a", "A")});
  manager_->syncWithStore();
  child(0)->ignoreTermination();
  manager_->retire("a");
  runtime_.settle();
  EXPECT_EQ(runningChildren(), 1);
  manager_->stopAll();
  EXPECT_EQ(runningChildren(), 0);
  EXPECT_EQ(child(0)->terminateRequests(), 1);
}

TEST_F(TailnetManagerTest, StoppingAllAsksEveryChildBeforeItWaitsForOne) {
  Servers::replaceAll({namedServer("1", "A"), namedServer("2", "B")});
  manager_->syncWithStore();
  runtime_.advance(1s);
  const auto stubborn = child(0);
  stubborn->ignoreTermination();
  manager_->stopAll();
  for (const auto& each : runtime_.launcher.children()) {
    EXPECT_EQ(each->terminateRequests(), 1);
    EXPECT_FALSE(each->isRunning());
  }
  EXPECT_EQ(ids().size(), 2U);
  runtime_.advance(600s);
  EXPECT_EQ(launches(), 4U);
}

}  // namespace
}  // namespace zephyl
