#include "ZephylTray/Agent/AgentMonitor.hpp"

#include <gtest/gtest.h>

#include "Support/ManualClock.hpp"
#include "System/Concurrency/MainLoop.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

/// A monitor of an agent whose answers the test sets and sends.
class AgentMonitorTest : public ::testing::Test {
 protected:
  using Update = AgentMonitor::Update;

  AgentMonitorTest() {
    monitor_->onChange = [this](const AgentSnapshot& snapshot, Update update) {
      EXPECT_EQ(&snapshot, &monitor_->snapshot());
      updates_.push_back(update);
    };
  }

  void answerPoll() {
    polls_.front()(result_);
    polls_.erase(polls_.begin());
  }
  void poll() {
    monitor_->refresh();
    answerPoll();
  }

  const Error refused_{"refused"};
  const AgentPoll found_{.status = {.state = AgentState::connected},
                         .roots = {{.root = "/a", .name = "a"}},
                         .activity = Activity{.busy = true}};
  Result<AgentPoll> result_ = found_;
  std::vector<std::function<void(Result<AgentPoll>)>> polls_;
  std::function<void(Activity)> event_;
  int streams_ = 0;  // being followed
  int peerForgotten_ = 0;
  std::vector<Update> updates_;
  MainLoop mainLoop_;
  test::ManualClock clock_;
  std::shared_ptr<AgentMonitor> monitor_ = std::make_shared<AgentMonitor>(
      mainLoop_, clock_,
      AgentMonitor::Port{
          .poll = [this](auto done) { polls_.push_back(done); },
          .followEvents =
              [this](auto onActivity) {
                event_ = onActivity;
                ++streams_;
                return std::shared_ptr<void>(nullptr, [this](void*) { --streams_; });
              },
          .forgetPeer = [this] { ++peerForgotten_; },
      });
};

TEST_F(AgentMonitorTest, IsEmptyBeforeTheFirstPoll) {
  monitor_->refresh();
  EXPECT_FALSE(monitor_->hasPolled());
  EXPECT_FALSE(monitor_->snapshot().reachable);
  EXPECT_TRUE(updates_.empty());
}

TEST_F(AgentMonitorTest, APollThatSucceedsMakesTheAgentReachable) {
  poll();
  EXPECT_TRUE(monitor_->hasPolled());
  EXPECT_TRUE(monitor_->snapshot().reachable);
  EXPECT_EQ(monitor_->snapshot().status, found_.status);
  EXPECT_EQ(monitor_->snapshot().roots, found_.roots);
  EXPECT_EQ(monitor_->snapshot().activity, found_.activity);
  EXPECT_EQ(updates_, std::vector{Update::poll});
  EXPECT_EQ(peerForgotten_, 0);
}

TEST_F(AgentMonitorTest, AFailedPollClearsEverything) {
  poll();
  result_ = refused_;
  poll();
  EXPECT_TRUE(monitor_->hasPolled());
  EXPECT_FALSE(monitor_->snapshot().reachable);
  EXPECT_FALSE(monitor_->snapshot().status);
  EXPECT_FALSE(monitor_->snapshot().activity);
  EXPECT_TRUE(monitor_->snapshot().roots.empty());
  EXPECT_EQ(peerForgotten_, 1);
  result_ = found_;
  poll();
  EXPECT_TRUE(monitor_->snapshot().reachable);
  EXPECT_EQ(peerForgotten_, 1);
}

TEST_F(AgentMonitorTest, APollWithoutActivityKeepsTheLastOne) {
  poll();
  result_ = AgentPoll{};
  poll();
  EXPECT_TRUE(monitor_->snapshot().reachable);
  EXPECT_TRUE(monitor_->snapshot().roots.empty());
  EXPECT_TRUE(monitor_->snapshot().activity->busy);
}

TEST_F(AgentMonitorTest, PollsEveryTwoSecondsEvenDuringASlowPoll) {
  monitor_->startPolling();
  EXPECT_TRUE(polls_.empty());
  clock_.advance(1999ms);
  mainLoop_.runPending();
  EXPECT_TRUE(polls_.empty());
  for (std::size_t polls = 1; polls <= 3; ++polls) {
    clock_.advance(polls == 1 ? 1ms : 2000ms);
    mainLoop_.runPending();
    EXPECT_EQ(polls_.size(), polls);
  }
}

TEST_F(AgentMonitorTest, APollReportsPartialResults) {
  std::vector<Update> reported;
  monitor_->pollOnce([&] { reported = updates_; });
  answerPoll();
  EXPECT_EQ(reported, std::vector{Update::poll});
}

TEST_F(AgentMonitorTest, AnEventReplacesOnlyTheActivity) {
  poll();
  monitor_->startActivityStream();
  event_(Activity{.busy = true});
  EXPECT_TRUE(monitor_->snapshot().activity->busy);
  EXPECT_TRUE(monitor_->snapshot().reachable);
}

TEST_F(AgentMonitorTest, APollDoesNotReplaceAnActivityThatWasReportedDuringIt) {
  monitor_->startActivityStream();
  monitor_->refresh();
  event_(Activity{.pendingApprovals = {{.id = "a"}}});
  answerPoll();
  EXPECT_TRUE(monitor_->snapshot().reachable);
  EXPECT_EQ(monitor_->snapshot().activity->pendingApprovals.size(), 1U);
  poll();
  EXPECT_EQ(monitor_->snapshot().activity, found_.activity);
}

TEST_F(AgentMonitorTest, DistinguishesProgressFromChangesOfTheMenu) {
  monitor_->startActivityStream();
  event_(Activity{});
  event_(Activity{.busy = true, .indexing = {{.root = "/a"}}});
  event_(Activity{.pendingApprovals = {{.id = "a"}}});
  event_(Activity{.pendingApprovals = {{.id = "a"}}, .escapeGrants = {{.path = "/a"}}});
  event_(Activity{.model = ModelStatus{.phase = ModelPhase::checking},
                  .pendingApprovals = {{.id = "a"}},
                  .escapeGrants = {{.path = "/a"}}});
  EXPECT_EQ(updates_, (std::vector{Update::activity, Update::progress, Update::activity,
                                   Update::activity, Update::activity}));
}

TEST_F(AgentMonitorTest, RestartingTheStreamReplacesIt) {
  monitor_->startActivityStream();
  monitor_->startActivityStream();
  EXPECT_EQ(streams_, 1);
  monitor_->stopActivityStream();
  EXPECT_EQ(streams_, 0);
}

TEST_F(AgentMonitorTest, TheBusyQueryReflectsTheActivityAndOutlivesTheMonitor) {
  const auto isBusy = monitor_->busyQuery();
  EXPECT_FALSE(isBusy());
  monitor_->startActivityStream();
  event_(Activity{.busy = true});
  EXPECT_TRUE(isBusy());
  result_ = refused_;
  poll();
  EXPECT_FALSE(isBusy());
  event_(Activity{.busy = true});
  monitor_.reset();
  EXPECT_TRUE(isBusy());
}

TEST_F(AgentMonitorTest, IgnoresAnswersAfterItsDestruction) {
  monitor_->startActivityStream();
  monitor_->startPolling();
  bool done = false;
  monitor_->pollOnce([&] { done = true; });
  monitor_.reset();
  answerPoll();
  event_(Activity{});
  clock_.advance(10s);
  mainLoop_.runPending();
  EXPECT_FALSE(done);
  EXPECT_TRUE(updates_.empty());
  EXPECT_TRUE(polls_.empty());
  EXPECT_EQ(streams_, 0);
}

}  // namespace
}  // namespace zephyl
