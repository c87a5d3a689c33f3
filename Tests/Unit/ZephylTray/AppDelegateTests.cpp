#include "ZephylTray/App/AppDelegate.hpp"

#include <gtest/gtest.h>

#include "Support/FakeAgent.hpp"
#include "Support/FakeDesktop.hpp"
#include "Support/FakeDialogs.hpp"
#include "Support/RawClient.hpp"
#include "Support/TestRuntime.hpp"
#include "Support/TrayWorld.hpp"
#include "System/Files/Bundle.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

class AppDelegateTest : public ::testing::Test {
 protected:
  /// Starts the controller beside a desktop app that runs already.
  void launch() {
    desktop_.applications = {{.identifier = DesktopApp::identifier, .pid = 1}};
    delegate_ = std::make_shared<AppDelegate>(runtime_.runtime(), desktop_, dialogs_);
    delegate_->applicationDidFinishLaunching();
  }

  bool reached() {
    return runtime_.runUntil([&] { return delegate_->agentView().reachable; });
  }

  /// Moves time on, poll by poll, until `condition` holds. One may not do: an earlier poll that is
  /// still under way can end after it.
  bool pollUntil(const std::function<bool()>& condition) {
    for (int poll = 0; poll < 20; ++poll) {
      runtime_.clock.advance(AppDelegate::pollInterval);
      const auto holds = [&] {
        runtime_.mainLoop.runPending();
        return condition();
      };
      if (test::eventually(holds, 500ms)) return true;
    }
    return false;
  }

  std::size_t polls() { return agent_.requestCount("GET /api/status"); }

  test::TrayWorld world_;
  test::FakeAgent agent_;
  test::ScopedVariable port_{"AGENT_TRAY_PORT", std::to_string(agent_.port())};
  test::ScopedVariable controlPort_{"ZEPHYL_ONBOARD_PORT", std::to_string(test::freePort())};
  test::TestRuntime runtime_;
  test::FakeDesktop desktop_;
  test::FakeDialogs dialogs_;
  std::shared_ptr<AppDelegate> delegate_;
};

TEST_F(AppDelegateTest, UsesAnAgentThatAnswersAndLaunchesNone) {
  world_.addAgent();
  agent_.answerHealthily(R"([{"root":"/a","name":"a"},{"root":"/b","name":"b"}])");
  launch();
  ASSERT_TRUE(reached());
  ASSERT_TRUE(
      runtime_.runUntil([&] { return polls() >= 2; }));  // the launch check and the first refresh
  EXPECT_TRUE(runtime_.launcher.children().empty());
  EXPECT_EQ(desktop_.item.title, " 2");
  EXPECT_TRUE(
      runtime_.runUntil([&] { return desktop_.item.description == "reachable, 2 folders"; }));
}

TEST_F(AppDelegateTest, LaunchesTheAgentOnceWhenNothingAnswers) {
  world_.addAgent();
  launch();
  ASSERT_TRUE(runtime_.runUntil([&] { return runtime_.launcher.children().size() == 1; }));
  EXPECT_FALSE(delegate_->agentView().reachable);
  EXPECT_EQ(desktop_.item.title, "");
  agent_.answerHealthily();
  EXPECT_TRUE(pollUntil([&] { return delegate_->agentView().reachable; }));
  EXPECT_EQ(runtime_.launcher.children().size(), 1U);
}

TEST_F(AppDelegateTest, CreatesTheItemAndFollowsTheStreamBeforeTheFirstPollIsBack) {
  agent_.hang("GET /api/status");
  launch();
  EXPECT_TRUE(desktop_.hasStatusItem);
  EXPECT_TRUE(runtime_.runUntil([&] { return agent_.openStreams() == 1; }));
}

TEST_F(AppDelegateTest, HasAMenuAtOnceAndWordsOnceTheStateIsKnown) {
  agent_.hang("GET /api/status");
  launch();
  EXPECT_FALSE(desktop_.item.menu.empty());
  ASSERT_TRUE(runtime_.runUntil([&] { return agent_.openStreams() == 1 && polls() == 2; }));
  agent_.writeToStreams("data: " + test::activityJSON(true) + "\n\n");
  ASSERT_TRUE(runtime_.runUntil([&] { return delegate_->agentView().activity.has_value(); }));
  EXPECT_EQ(desktop_.item.descriptionsSet, 0) << desktop_.item.description;
  agent_.answerHealthily();
  EXPECT_TRUE(pollUntil([&] { return desktop_.item.description == "reachable, 0 folders"; }));
}

TEST_F(AppDelegateTest, SaysSoWhenNothingAnswersTheFirstPoll) {
  world_.addAgent();
  launch();
  EXPECT_TRUE(
      runtime_.runUntil([&] { return desktop_.item.description == "agent not reachable"; }));
}

TEST_F(AppDelegateTest, StartsTailnetsOnlyWhenBothOfTheirProgramsExist) {
  world_.addAgent();
  world_.addProgram("packages/tailnet-client/tailscaled");
  Servers::add("", std::nullopt, std::string(32, 'a'));
  launch();
  ASSERT_TRUE(runtime_.runUntil([&] { return runtime_.launcher.children().size() == 1; }));
  EXPECT_TRUE(runtime_.runUntil([&] { return agent_.openStreams() == 1; }));
  EXPECT_EQ(runtime_.launcher.newest()->options().arguments.at(0), "-c") << "the agent's shell";

  const auto daemon = world_.source() + "/packages/tailnet-client/tailscaled";
  world_.addProgram("packages/tailnet-client/zephyl-tailnet");
  launch();
  const auto started = runtime_.launcher.children();
  ASSERT_EQ(started.size(), 3U);
  EXPECT_EQ(started[1]->options().executable, daemon);
  EXPECT_EQ(started[2]->options().executable, "/usr/bin/getent") << "for the internal host name";
}

TEST_F(AppDelegateTest, LeavesAnOpenMenuAloneWhateverPollAndStreamBring) {
  agent_.answerHealthily();
  launch();
  ASSERT_TRUE(reached());
  ASSERT_TRUE(runtime_.runUntil([&] { return agent_.openStreams() == 1 && polls() == 2; }));
  runtime_.settle();
  desktop_.item.events.willOpen();
  const int before = desktop_.item.menusSet;
  const auto telling = test::activityJSON(
      true, R"(,"model":{"phase":"checking","downloadedBytes":0,"totalBytes":0})");
  agent_.answer("GET /api/activity", 200, telling);
  agent_.writeToStreams("data: " + telling + "\n\n");
  ASSERT_TRUE(pollUntil([&] {
    return desktop_.item.description == "reachable, 0 folders, preparing embeddings model";
  }));
  EXPECT_EQ(desktop_.item.menusSet, before);
  desktop_.item.events.didClose();
  EXPECT_TRUE(pollUntil([&] { return desktop_.item.menusSet > before; }));
}

TEST_F(AppDelegateTest, AsksForNotificationsOnlyInsideABundle) {
  launch();
  EXPECT_EQ(desktop_.authorizationRequests, 0);
  world_.directory().write("prefix/share/zephyl-tray/Info.json",
                           R"({"CFBundleIdentifier":"com.zephyl.tray"})");
  Bundle::setMain(Bundle(world_.directory().write("prefix/bin/zephyl-tray", "", true)));
  launch();
  EXPECT_EQ(desktop_.authorizationRequests, 1);
  Bundle::setMain(Bundle(std::nullopt));
}

TEST_F(AppDelegateTest, PollsEveryTwoSeconds) {
  agent_.answerHealthily();
  launch();
  ASSERT_TRUE(runtime_.runUntil([&] { return polls() == 2; }));
  runtime_.clock.advance(1999ms);
  runtime_.mainLoop.runPending();
  EXPECT_EQ(polls(), 2U);
  runtime_.clock.advance(1ms);
  EXPECT_TRUE(runtime_.runUntil([&] { return polls() == 3; }));
}

TEST_F(AppDelegateTest, ASlowPollDoesNotHoldUpTheNext) {
  agent_.hang("GET /api/status");
  launch();
  ASSERT_TRUE(runtime_.runUntil([&] { return polls() == 2; }));
  agent_.answerHealthily();
  EXPECT_TRUE(pollUntil([&] { return delegate_->agentView().reachable; }));
}

TEST_F(AppDelegateTest, AFailureOfTheActivityAloneKeepsTheLastSnapshot) {
  agent_.answerHealthily();
  agent_.answer("GET /api/activity", 200, test::activityJSON(true));
  launch();
  ASSERT_TRUE(reached());
  agent_.answerHealthily(R"([{"root":"/a","name":"a"}])");
  agent_.answer("GET /api/activity", 500, "{}");
  ASSERT_TRUE(pollUntil([&] { return desktop_.item.title == " 1"; }));
  EXPECT_TRUE(delegate_->agentView().reachable);
  EXPECT_TRUE(delegate_->agentView().activity->busy);
  EXPECT_EQ(desktop_.item.icon, StatusIcon::busy);
}

TEST_F(AppDelegateTest, AFailureOfTheRootsClearsEverything) {
  agent_.answerHealthily(R"([{"root":"/a","name":"a"}])");
  launch();
  ASSERT_TRUE(reached());
  agent_.answer("GET /api/roots", 200, "garbage");
  ASSERT_TRUE(pollUntil([&] { return !delegate_->agentView().reachable; }));
  EXPECT_FALSE(delegate_->agentView().status);
  EXPECT_FALSE(delegate_->agentView().activity);
  EXPECT_TRUE(delegate_->agentView().roots.empty());
  EXPECT_EQ(desktop_.item.title, "");
  EXPECT_EQ(desktop_.item.icon, StatusIcon::idle);
}

TEST_F(AppDelegateTest, AHundredMegabytesOfJSONAreNoAnswer) {
  agent_.answerHealthily();
  launch();
  ASSERT_TRUE(reached());
  agent_.answer("GET /api/status", 200, R"({"state":")" + std::string(100 << 20, 'x') + "\"}");
  EXPECT_TRUE(pollUntil([&] { return !delegate_->agentView().reachable; }));
}

TEST_F(AppDelegateTest, StreamEventsSetActivityAndIcon) {
  agent_.answerHealthily();
  launch();
  ASSERT_TRUE(reached());
  ASSERT_TRUE(runtime_.runUntil([&] { return agent_.openStreams() == 1 && polls() == 2; }));
  // Again and again, since the end of a poll may come in between.
  const auto tellUntil = [&](bool busy, StatusIcon icon) {
    return runtime_.runUntil([&] {
      agent_.writeToStreams("data: " + test::activityJSON(busy) + "\n\n");
      return desktop_.item.icon == icon;
    });
  };
  EXPECT_TRUE(tellUntil(true, StatusIcon::busy));
  EXPECT_TRUE(tellUntil(false, StatusIcon::idle));
}

TEST_F(AppDelegateTest, StartingTheStreamAgainReplacesIt) {
  agent_.answerHealthily();
  launch();
  ASSERT_TRUE(runtime_.runUntil([&] { return agent_.openStreams() == 1; }));
  delegate_->startActivityStream();
  ASSERT_TRUE(runtime_.runUntil([&] { return agent_.requestCount("GET /api/events") == 2; }));
  EXPECT_TRUE(runtime_.runUntil([&] { return agent_.openStreams() == 1; }));
}

TEST_F(AppDelegateTest, TellsTheUserWhyTheAgentFailed) {
  world_.addAgent();
  launch();
  ASSERT_TRUE(runtime_.runUntil([&] { return runtime_.launcher.children().size() == 1; }));
  runtime_.launcher.newest()->print({"no space left"});
  runtime_.launcher.newest()->exit({ExitStatus::Reason::exited, 3});
  ASSERT_TRUE(runtime_.runUntil([&] { return !dialogs_.logWindows().empty(); }));
  const auto window = dialogs_.logWindows()[0];
  EXPECT_EQ(window.title, "Agent Exited Unexpectedly");
  EXPECT_EQ(window.message, "The Zephyl agent didn't start cleanly — it exited with code 3.");
  EXPECT_EQ(window.fullText, "no space left");
}

TEST_F(AppDelegateTest, TellsTheUserThatThereIsNoAgent) {
  launch();
  ASSERT_TRUE(runtime_.runUntil([&] { return !dialogs_.logWindows().empty(); }));
  const auto window = dialogs_.logWindows()[0];
  EXPECT_EQ(window.title, "Agent Failed to Start");
  EXPECT_TRUE(window.message.starts_with(
      "The Zephyl agent could not be started: No Rust agent binary found."));
  EXPECT_TRUE(window.fullText.starts_with("[tray] No Rust agent"));
}

TEST_F(AppDelegateTest, TerminatingEndsTheStreamAndTheAgent) {
  world_.addAgent();
  launch();
  ASSERT_TRUE(runtime_.runUntil(
      [&] { return runtime_.launcher.children().size() == 1 && agent_.openStreams() == 1; }));
  delegate_->applicationWillTerminate();
  EXPECT_FALSE(runtime_.launcher.newest()->isRunning());
  EXPECT_TRUE(test::eventually([&] { return agent_.openStreams() == 0; }));
}

TEST_F(AppDelegateTest, TerminatingKillsAnAgentThatDoesNotEnd) {
  world_.addAgent();
  launch();
  ASSERT_TRUE(runtime_.runUntil([&] { return runtime_.launcher.children().size() == 1; }));
  const auto child = runtime_.launcher.newest();
  child->ignoreTermination();
  delegate_->applicationWillTerminate();
  EXPECT_EQ(child->terminateRequests(), 1);
  EXPECT_FALSE(child->isRunning());
}

TEST_F(AppDelegateTest, WhatArrivesAfterItIsGoneDoesNothing) {
  agent_.answerHealthily();
  launch();
  delegate_.reset();
  runtime_.clock.advance(10s);
  EXPECT_TRUE(runtime_.runUntil([&] { return agent_.openStreams() == 0; }));
}

}  // namespace
}  // namespace zephyl
