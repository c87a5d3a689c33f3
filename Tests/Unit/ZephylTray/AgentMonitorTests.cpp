#include "ZephylTray/Agent/AgentMonitor.hpp"

#include <gtest/gtest.h>

#include "Support/ManualClock.hpp"
#include "System/Concurrency/MainLoop.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

/// A monitor of an agent that answers what the test says, when the test says so.
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
    statusAsked_.front()(status_);
    statusAsked_.erase(statusAsked_.begin());
  }
  void poll() {
    monitor_->refresh();
    answerPoll();
  }

  const Error refused_{"refused"};
  Result<AgentStatus> status_ = AgentStatus{.state = AgentState::connected};
  Result<std::vector<SharedRoot>> roots_ = std::vector<SharedRoot>{};
  Result<Activity> activity_ = Activity{};
  std::vector<AgentMonitor::Completion<AgentStatus>> statusAsked_;
  std::function<void(Activity)> event_;
  int streams_ = 0;  // followed now
  int peerForgotten_ = 0;
  std::vector<Update> updates_;
  MainLoop mainLoop_;
  test::ManualClock clock_;
  std::shared_ptr<AgentMonitor> monitor_ = std::make_shared<AgentMonitor>(
      mainLoop_, clock_,
      AgentMonitor::Port{
          .getStatus = [this](auto done) { statusAsked_.push_back(done); },
          .getRoots = [this](auto done) { done(roots_); },
          .getActivity = [this](auto done) { done(activity_); },
          .followEvents =
              [this](auto onActivity) {
                event_ = onActivity;
                ++streams_;
                return std::shared_ptr<void>(nullptr, [this](void*) { --streams_; });
              },
          .forgetPeer = [this] { ++peerForgotten_; },
      });
};

TEST_F(AgentMonitorTest, KnowsNothingBeforeTheFirstPoll) {
  monitor_->refresh();
  EXPECT_FALSE(monitor_->hasPolled());
  EXPECT_FALSE(monitor_->snapshot().reachable);
  EXPECT_TRUE(updates_.empty());
}

TEST_F(AgentMonitorTest, APollThatSucceedsMakesTheAgentReachable) {
  roots_ = std::vector<SharedRoot>{{.root = "/a", .name = "a"}};
  activity_ = Activity{.busy = true};
  poll();
  EXPECT_TRUE(monitor_->hasPolled());
  EXPECT_TRUE(monitor_->snapshot().reachable);
  EXPECT_EQ(monitor_->snapshot().status, *status_);
  EXPECT_EQ(monitor_->snapshot().roots, *roots_);
  EXPECT_EQ(monitor_->snapshot().activity, *activity_);
  EXPECT_EQ(updates_, std::vector{Update::poll});
  EXPECT_EQ(peerForgotten_, 0);
}

TEST_F(AgentMonitorTest, AFailureOfStatusOrRootsClearsEverything) {
  poll();
  for (const bool statusFails : {true, false}) {
    status_ = statusFails ? Result<AgentStatus>(refused_) : AgentStatus{};
    roots_ = statusFails ? std::vector<SharedRoot>{} : Result<std::vector<SharedRoot>>(refused_);
    poll();
    EXPECT_TRUE(monitor_->hasPolled());
    EXPECT_FALSE(monitor_->snapshot().reachable);
    EXPECT_FALSE(monitor_->snapshot().status);
    EXPECT_FALSE(monitor_->snapshot().activity);
    EXPECT_TRUE(monitor_->snapshot().roots.empty());
    status_ = AgentStatus{};
    roots_ = std::vector<SharedRoot>{{.root = "/a", .name = "a"}};
    poll();
    EXPECT_TRUE(monitor_->snapshot().reachable);
  }
  EXPECT_EQ(peerForgotten_, 2);
}

TEST_F(AgentMonitorTest, AFailureOfTheActivityAloneKeepsTheLastOne) {
  activity_ = Activity{.busy = true};
  poll();
  activity_ = refused_;
  roots_ = std::vector<SharedRoot>{{.root = "/a", .name = "a"}};
  poll();
  EXPECT_TRUE(monitor_->snapshot().reachable);
  EXPECT_EQ(monitor_->snapshot().roots.size(), 1U);
  EXPECT_TRUE(monitor_->snapshot().activity->busy);
}

TEST_F(AgentMonitorTest, PollsEveryTwoSecondsAndASlowPollDoesNotHoldUpTheNext) {
  monitor_->startPolling();
  EXPECT_TRUE(statusAsked_.empty());
  clock_.advance(1999ms);
  mainLoop_.runPending();
  EXPECT_TRUE(statusAsked_.empty());
  for (std::size_t polls = 1; polls <= 3; ++polls) {
    clock_.advance(polls == 1 ? 1ms : 2000ms);
    mainLoop_.runPending();
    EXPECT_EQ(statusAsked_.size(), polls);
  }
}

TEST_F(AgentMonitorTest, APollReportsBeforeItIsDone) {
  std::vector<Update> reported;
  monitor_->pollOnce([&] { reported = updates_; });
  answerPoll();
  EXPECT_EQ(reported, std::vector{Update::poll});
}

TEST_F(AgentMonitorTest, AnEventReplacesTheActivityAndNothingElse) {
  poll();
  monitor_->startActivityStream();
  event_(Activity{.busy = true});
  EXPECT_TRUE(monitor_->snapshot().activity->busy);
  EXPECT_TRUE(monitor_->snapshot().reachable);
}

TEST_F(AgentMonitorTest, TellsProgressFromWhatTheMenuShows) {
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

TEST_F(AgentMonitorTest, StartingTheStreamAgainReplacesIt) {
  monitor_->startActivityStream();
  monitor_->startActivityStream();
  EXPECT_EQ(streams_, 1);
  monitor_->stopActivityStream();
  EXPECT_EQ(streams_, 0);
}

TEST_F(AgentMonitorTest, TheBusyQueryFollowsTheActivityAndOutlivesTheMonitor) {
  const auto isBusy = monitor_->busyQuery();
  EXPECT_FALSE(isBusy());
  monitor_->startActivityStream();
  event_(Activity{.busy = true});
  EXPECT_TRUE(isBusy());
  status_ = refused_;
  poll();
  EXPECT_FALSE(isBusy());
  event_(Activity{.busy = true});
  monitor_.reset();
  EXPECT_TRUE(isBusy());
}

TEST_F(AgentMonitorTest, WhatArrivesAfterItIsGoneDoesNothing) {
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
  EXPECT_TRUE(statusAsked_.empty());
  EXPECT_EQ(streams_, 0);
}

}  // namespace
}  // namespace zephyl
