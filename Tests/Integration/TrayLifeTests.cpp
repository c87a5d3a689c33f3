#include <cstdlib>

#include "Integration/TrayFixture.hpp"
#include "System/Files/Shell.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

/// From the start of the tray to its end, with and without an agent.
class TrayLife : public test::TrayFixture {
 protected:
  /// Advances time, poll by poll, until `condition` holds. One poll may not suffice, because an
  /// earlier one may end after it.
  bool pollUntil(const std::function<bool()>& condition) {
    for (int poll = 0; poll < 20; ++poll) {
      runtime_.clock.advance(AgentMonitor::pollInterval);
      const auto holds = [&] {
        runtime_.mainLoop.runPending();
        return condition();
      };
      if (test::eventually(holds, 500ms)) return true;
    }
    return false;
  }
  std::size_t polls() { return agent_.requestCount("GET /api/status"); }
  bool agentLaunched() {
    return runtime_.runUntil([&] { return launched(loginShell()) == 1; });
  }
};

TEST_F(TrayLife, UsesAnAgentThatAnswersAndLaunchesNone) {
  world_.addAgent();
  agent_.answerHealthily(R"([{"root":"/a","name":"a"},{"root":"/b","name":"b"}])");
  launch();
  ASSERT_TRUE(runtime_.runUntil([&] { return desktop_.item.title == " 2"; }));
  EXPECT_EQ(desktop_.item.description, "reachable, 2 folders");
  // The first refresh and the poll that decides about a launch.
  ASSERT_TRUE(runtime_.runUntil([&] { return agent_.requestCount("GET /api/activity") >= 2; }));
  runtime_.settle();
  EXPECT_EQ(launched(loginShell()), 0U);
}

TEST_F(TrayLife, LaunchesTheAgentOnceWhenNothingAnswers) {
  world_.addAgent();
  launch();
  ASSERT_TRUE(agentLaunched());
  EXPECT_FALSE(delegate_->agentSnapshot().reachable);
  EXPECT_EQ(desktop_.item.title, "");
  EXPECT_EQ(desktop_.item.description, "agent not reachable");
  agent_.answerHealthily();
  EXPECT_TRUE(pollUntil([&] { return delegate_->agentSnapshot().reachable; }));
  EXPECT_EQ(launched(loginShell()), 1U);
}

TEST_F(TrayLife, HasAMenuAndFollowsTheStreamDuringTheFirstPoll) {
  agent_.hang("GET /api/status");
  launch();
  EXPECT_FALSE(desktop_.item.menu.empty());
  ASSERT_TRUE(runtime_.runUntil([&] { return agent_.openStreams() == 1 && polls() == 2; }));
  agent_.writeToStreams("data: " + test::activityJSON(true) + "\n\n");
  ASSERT_TRUE(runtime_.runUntil([&] { return delegate_->agentSnapshot().activity.has_value(); }));
  EXPECT_EQ(desktop_.item.descriptionsSet, 0) << desktop_.item.description;
  agent_.answerHealthily();
  EXPECT_TRUE(pollUntil([&] { return desktop_.item.description == "reachable, 0 folders"; }));
}

TEST_F(TrayLife, PollsAndEventsReachTheIcon) {
  launchBesideAgent();
  const auto tellUntil = [&](bool busy, StatusIcon icon) {
    return runtime_.runUntil([&] {
      agent_.writeToStreams("data: " + test::activityJSON(busy) + "\n\n");
      return desktop_.item.icon == icon;
    });
  };
  EXPECT_TRUE(tellUntil(true, StatusIcon::busy));
  EXPECT_TRUE(tellUntil(false, StatusIcon::idle));
}

TEST_F(TrayLife, AnAnswerOfAHundredMegabytesIsRefused) {
  launchBesideAgent();
  agent_.answer("GET /api/status", 200, R"({"state":")" + std::string(100 << 20, 'x') + "\"}");
  EXPECT_TRUE(pollUntil([&] { return !delegate_->agentSnapshot().reachable; }));
}

TEST_F(TrayLife, StartsTailnetsOnlyWhenBothOfTheirProgramsExist) {
  world_.addProgram("packages/tailnet-client/tailscaled");
  Servers::add("", std::nullopt, std::string(32, 'a'));
  launch();
  runtime_.settle();
  EXPECT_EQ(launched("tailscaled"), 0U);
  EXPECT_EQ(launched("getent"), 0U);
  delegate_->applicationWillTerminate();

  addTailnetPrograms();
  launch();
  EXPECT_EQ(launched("tailscaled"), 1U);
  EXPECT_TRUE(runtime_.runUntil([&] { return launched("getent") == 1; }))
      << "for the internal host name";
}

TEST_F(TrayLife, TheWindowAtLaunchGetsTheTokenOfTheStart) {
  desktop_.activationToken = "token-1";
  launch();
  EXPECT_EQ(child("zephyl-desktop")->options().environment.at("XDG_ACTIVATION_TOKEN"), "token-1");
}

TEST_F(TrayLife, TheTokenOfTheStartIsNotKeptForALaterWindow) {
  const test::ScopedVariable nowhere("ZEPHYL_REPO_ROOT", world_.directory() / "nowhere");
  desktop_.activationToken = "token-1";
  launch();
  EXPECT_EQ(launched("zephyl-desktop"), 0U);
  EXPECT_EQ(desktop_.activationToken, "");
}

TEST_F(TrayLife, AsksForNotificationsOnlyInsideABundle) {
  launch();
  EXPECT_EQ(desktop_.authorizationRequests, 0);
  delegate_->applicationWillTerminate();
  becomeBundle();
  launch();
  EXPECT_EQ(desktop_.authorizationRequests, 1);
}

TEST_F(TrayLife, ReportsWhyTheAgentFailedToTheUser) {
  world_.addAgent();
  launch();
  ASSERT_TRUE(agentLaunched());
  child(loginShell())->print({"no space left"});
  child(loginShell())->exit({ExitStatus::Reason::exited, 3});
  ASSERT_TRUE(runtime_.runUntil([&] { return !dialogs_.logWindows().empty(); }));
  const auto window = dialogs_.logWindows()[0];
  EXPECT_EQ(window.title, "Agent Exited Unexpectedly");
  EXPECT_EQ(window.message, "The Zephyl agent didn't start cleanly — it exited with code 3.");
  EXPECT_EQ(window.fullText, "no space left");
}

TEST_F(TrayLife, ReportsAMissingAgentToTheUser) {
  launch();
  ASSERT_TRUE(runtime_.runUntil([&] { return !dialogs_.logWindows().empty(); }));
  const auto window = dialogs_.logWindows()[0];
  EXPECT_EQ(window.title, "Agent Failed to Start");
  EXPECT_TRUE(window.message.starts_with(
      "The Zephyl agent could not be started: No Rust agent binary found."));
  EXPECT_TRUE(window.fullText.starts_with("[tray] No Rust agent"));
  dialogs_.tellLogWindow(LogWindowEvent::openInVSCode);
  ASSERT_EQ(desktop_.openedFiles.size(), 1U);
  EXPECT_EQ(desktop_.openedFiles[0].second, Editor::vsCode);
}

TEST_F(TrayLife, TerminatingEndsTheStreamAndTheAgent) {
  world_.addAgent();
  launch();
  ASSERT_TRUE(agentLaunched());
  ASSERT_TRUE(runtime_.runUntil([&] { return agent_.openStreams() == 1; }));
  delegate_->applicationWillTerminate();
  EXPECT_EQ(running(loginShell()), 0U);
  EXPECT_TRUE(test::eventually([&] { return agent_.openStreams() == 0; }));
}

TEST_F(TrayLife, TerminatingKillsAnAgentThatDoesNotEnd) {
  world_.addAgent();
  launch();
  ASSERT_TRUE(agentLaunched());
  const auto agent = child(loginShell());
  agent->ignoreTermination();
  delegate_->applicationWillTerminate();
  EXPECT_EQ(agent->terminateRequests(), 1);
  EXPECT_FALSE(agent->isRunning());
}

TEST_F(TrayLife, IgnoresEventsAfterItsDestruction) {
  launchBesideAgent();
  const std::weak_ptr<AppDelegate> witness = delegate_;
  agent_.hang("GET /api/status");
  runtime_.clock.advance(AgentMonitor::pollInterval);
  runtime_.mainLoop.runPending();
  ASSERT_TRUE(test::eventually([&] { return polls() == 3; }));
  agent_.writeToStreams("data: " + test::activityJSON(true) + "\n\n");
  ASSERT_TRUE(runtime_.mainLoop.waitForTask(10s));
  delegate_.reset();
  EXPECT_TRUE(witness.expired());
  runtime_.clock.advance(10s);
  desktop_.item.events.needsUpdate();
  EXPECT_TRUE(runtime_.runUntil([&] { return agent_.openStreams() == 0; }));
  EXPECT_EQ(polls(), 3U);
  EXPECT_EQ(desktop_.item.icon, StatusIcon::idle);
}

TEST_F(TrayLife, AControlPortOutOfRangeEndsTheTrayBeforeItStartsAWindow) {
  const test::ScopedVariable port("ZEPHYL_ONBOARD_PORT", "65536");
  delegate_ = std::make_shared<AppDelegate>(runtime_.runtime(), desktop_, dialogs_);
  EXPECT_EQ(delegate_->exitStatus(), EXIT_SUCCESS);
  delegate_->applicationDidFinishLaunching();
  runtime_.mainLoop.run();  // returns because the tray has quit
  EXPECT_EQ(delegate_->exitStatus(), EXIT_FAILURE);
  EXPECT_EQ(launched("zephyl-desktop"), 0U);
}

}  // namespace
}  // namespace zephyl
