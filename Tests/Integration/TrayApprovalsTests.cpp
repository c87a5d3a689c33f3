#include "Integration/TrayFixture.hpp"

namespace zephyl {
namespace {

/// Requests for approval from the agent's event stream to the decision that the agent receives.
class TrayApprovals : public test::TrayFixture {
 protected:
  TrayApprovals() {
    becomeBundle();
    agent_.answer("POST /api/approvals", 200, "{}");
    launchBesideAgent();
    // Waits for both first polls, because a later one would replace the activity of the events.
    runtime_.runUntil([&] { return agent_.requestCount("GET /api/activity") == 2; });
    runtime_.settle();
  }

  /// Reports these requests as pending until the tray prompts for one.
  void pend(const std::string& id) {
    const auto request = R"({"id":")" + id + R"(","kind":"path","tool":"cat","target":"/etc/)" +
                         id + R"(","root":"/r","reasons":[],"createdAt":1})";
    const auto activity = test::activityJSON(false, R"(,"pendingApprovals":[)" + request + "]");
    agent_.answer("GET /api/activity", 200, activity);
    agent_.writeToStreams("data: " + activity + "\n\n");
    ASSERT_TRUE(runtime_.runUntil([&] { return !dialogs_.alerts().empty(); }));
  }
  /// Waits for a call to the agent and returns its body.
  json::Value bodyOf(const std::string& call) {
    EXPECT_TRUE(runtime_.runUntil([&] { return agent_.requestCount(call) > 0; }));
    for (const auto& each : agent_.requests()) {
      if (each.method + " " + each.path == call) return *json::parse(each.body);
    }
    return nullptr;
  }
};

TEST_F(TrayApprovals, ADecisionReachesTheAgent) {
  pend("a");
  ASSERT_EQ(desktop_.notifications.size(), 1U);
  EXPECT_EQ(desktop_.notifications[0].identifier, "a");
  dialogs_.press("Always allow…");
  dialogs_.press("Create permanent exception", "ALWAYS ALLOW");
  EXPECT_EQ(bodyOf("POST /api/approvals"),
            (json::Object{{"id", "a"}, {"decision", "always"}, {"confirm", "ALWAYS ALLOW"}}));
  EXPECT_TRUE(runtime_.runUntil([&] { return desktop_.notifications.empty(); }));
}

TEST_F(TrayApprovals, ADecisionReachesAnAgentThatIsRestarting) {
  pend("a");
  agent_.stopListening();
  const auto timers = runtime_.clock.pendingTimers();
  dialogs_.press("Allow once");
  ASSERT_TRUE(runtime_.runUntil([&] { return runtime_.clock.pendingTimers() > timers; }));
  EXPECT_TRUE(dialogs_.alerts().empty());
  agent_.listenAgain();
  runtime_.advance(std::chrono::milliseconds(250));
  EXPECT_EQ(bodyOf("POST /api/approvals"), (json::Object{{"id", "a"}, {"decision", "approve"}}));
  EXPECT_TRUE(runtime_.runUntil([&] { return desktop_.notifications.empty(); }));
  EXPECT_TRUE(dialogs_.alerts().empty());
}

TEST_F(TrayApprovals, ARefusalOfTheAgentIsShown) {
  agent_.answer("POST /api/approvals", 409, R"({"error":"too late"})");
  pend("a");
  dialogs_.press("Deny");
  ASSERT_TRUE(runtime_.runUntil([&] { return !dialogs_.alerts().empty(); }));
  EXPECT_EQ(dialogs_.alerts()[0].explanation, "too late");
}

TEST_F(TrayApprovals, MenuAndNotificationOpenThePrompt) {
  pend("a");
  dialogs_.failToShow();
  choose(menuActions::ReviewPendingApprovals());
  EXPECT_EQ(dialogs_.alerts().size(), 1U);
  desktop_.events.notificationActivated("a");
  EXPECT_EQ(dialogs_.timesBroughtToFront(), 1);
}

TEST_F(TrayApprovals, RevokingAnExceptionReachesTheAgentAndIsShown) {
  agent_.answer("DELETE /api/escape-grants", 200, R"({"escapeGrants":[]})");
  const auto before = agent_.requestCount("GET /api/status");
  choose(menuActions::RevokeEscapeGrant{{.path = "/etc/a", .root = "/r", .kind = "path"}});
  EXPECT_EQ(bodyOf("DELETE /api/escape-grants"),
            (json::Object{{"kind", "path"}, {"path", "/etc/a"}}));
  EXPECT_TRUE(runtime_.runUntil([&] { return agent_.requestCount("GET /api/status") > before; }));
}

}  // namespace
}  // namespace zephyl
