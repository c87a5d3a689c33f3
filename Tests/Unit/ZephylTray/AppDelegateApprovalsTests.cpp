#include <gtest/gtest.h>

#include "Support/FakeAgent.hpp"
#include "Support/FakeDesktop.hpp"
#include "Support/FakeDialogs.hpp"
#include "Support/RawClient.hpp"
#include "Support/TestRuntime.hpp"
#include "Support/TrayWorld.hpp"
#include "System/Data/JSON.hpp"
#include "System/Files/Bundle.hpp"
#include "ZephylTray/App/AppDelegate.hpp"
#include "ZephylTray/Menu/MenuActions.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

std::string request(const std::string& id) {
  return R"({"id":")" + id + R"(","kind":"path","tool":"cat","target":"/etc/)" + id +
         R"(","root":"/r","reasons":[],"createdAt":1})";
}

/// A controller that follows an agent's event stream, and a user who answers its dialogs.
class ApprovalsTest : public ::testing::Test {
 protected:
  ApprovalsTest() {
    world_.directory().write("prefix/share/zephyl-tray/Info.json",
                             R"({"CFBundleIdentifier":"com.zephyl.tray"})");
    Bundle::setMain(Bundle(world_.directory().write("prefix/bin/zephyl-tray", "", true)));
    desktop_.applications = {{.identifier = DesktopApp::identifier, .pid = 1}};
    agent_.answerHealthily();
    agent_.answer("POST /api/approvals", 200, "{}");
    delegate_ = std::make_shared<AppDelegate>(runtime_.runtime(), desktop_, dialogs_);
    delegate_->applicationDidFinishLaunching();
    runtime_.runUntil([&] { return agent_.openStreams() == 1; });
    // The first two polls are over. Each sets the title, and so does each of the first two menus.
    runtime_.runUntil([&] { return desktop_.item.titlesSet == 4; });
  }
  ~ApprovalsTest() override {
    delegate_->applicationWillTerminate();
    Bundle::setMain(Bundle(std::nullopt));
  }

  /// The agent says that these requests wait, and the controller has heard of it.
  void pend(const std::vector<std::string>& ids) {
    std::string list;
    for (const auto& id : ids) list += (list.empty() ? "" : ",") + request(id);
    const int before = desktop_.item.descriptionsSet;
    agent_.writeToStreams(
        "data: " + test::activityJSON(false, R"(,"pendingApprovals":[)" + list + "]") + "\n\n");
    ASSERT_TRUE(runtime_.runUntil([&] { return desktop_.item.descriptionsSet > before; }));
  }
  /// The targets that the prompts on screen ask about.
  std::vector<std::string> prompts() {
    std::vector<std::string> targets;
    for (const auto& alert : dialogs_.alerts()) {
      const auto at = alert.informativeText.find("/etc/");
      targets.push_back(at == std::string::npos ? alert.messageText
                                                : alert.informativeText.substr(at + 5, 1));
    }
    return targets;
  }
  using Strings = std::vector<std::string>;

  /// What was decided so far, such as "a=deny".
  Strings decisions() {
    Strings all;
    for (const auto& each : agent_.requests()) {
      if (each.method != "POST") continue;
      const auto body = json::parse(each.body)->as_object();
      all.push_back(std::string(body.at("id").as_string()) + "=" +
                    std::string(body.at("decision").as_string()) +
                    (body.contains("confirm") ? "!" : ""));
    }
    return all;
  }
  bool decided(const Strings& expected) {
    return runtime_.runUntil([&] { return decisions() == expected; });
  }
  Strings notified() {
    Strings ids;
    for (const auto& each : desktop_.notifications) ids.push_back(each.identifier);
    return ids;
  }

  test::TrayWorld world_;
  test::FakeAgent agent_;
  test::ScopedVariable agentPort_{"AGENT_TRAY_PORT", std::to_string(agent_.port())};
  test::ScopedVariable controlPort_{"ZEPHYL_ONBOARD_PORT", std::to_string(test::freePort())};
  test::TestRuntime runtime_;
  test::FakeDesktop desktop_;
  test::FakeDialogs dialogs_;
  std::shared_ptr<AppDelegate> delegate_;
};

TEST_F(ApprovalsTest, ANewRequestIsNotifiedAndAskedAbout) {
  pend({"a"});
  EXPECT_EQ(prompts(), Strings{"a"});
  EXPECT_EQ(
      desktop_.notifications,
      (std::vector<Notification>{{.identifier = "a",
                                  .title = "Zephyl: approval needed",
                                  .body = "Someone wants cat to reach outside the shared folder.",
                                  .actionTitle = "Review…"}}));
  const auto alert = dialogs_.alerts()[0];
  EXPECT_EQ(alert.style, Alert::Style::critical);
  EXPECT_EQ(alert.messageText, "Allow access outside the shared folder?");
  EXPECT_EQ(alert.buttons, (Strings{"Deny", "Allow once", "Always allow…"}));
  EXPECT_EQ(alert.safeButton, 0U);
  EXPECT_FALSE(alert.requestedByUser);
}

TEST_F(ApprovalsTest, EachButtonIsADecision) {
  pend({"a"});
  dialogs_.press("Deny");
  ASSERT_TRUE(decided({"a=deny"}));
  pend({"b"});
  dialogs_.press("Allow once");
  EXPECT_TRUE(decided({"a=deny", "b=approve"}));
}

TEST_F(ApprovalsTest, TheNextRequestIsAskedAboutWhenTheDecisionWasSent) {
  pend({"a", "b"});
  EXPECT_EQ(prompts(), Strings{"a"});
  EXPECT_EQ(notified(), Strings{"a"});
  dialogs_.press("Deny");
  EXPECT_EQ(prompts(), Strings{});
  ASSERT_TRUE(runtime_.runUntil([&] { return prompts() == Strings{"b"}; }));
  EXPECT_EQ(decisions(), Strings{"a=deny"});
  EXPECT_EQ(notified(), Strings{"b"});
}

TEST_F(ApprovalsTest, ThePhraseMakesAPermanentException) {
  Strings expected;
  for (const char* typed : {"ALWAYS ALLOW", " \tALWAYS ALLOW "}) {
    pend({"a"});
    dialogs_.press("Always allow…");
    ASSERT_EQ(dialogs_.alerts().back().messageText, "⚠️ Create a permanent exception?");
    dialogs_.press("Create permanent exception", typed);
    expected.emplace_back("a=always!");
    ASSERT_TRUE(decided(expected));
    pend({});
  }
}

TEST_F(ApprovalsTest, AnotherPhraseDeniesAndSaysSo) {
  pend({"a"});
  dialogs_.press("Always allow…");
  dialogs_.press("Create permanent exception", "always allow");
  ASSERT_EQ(prompts(), Strings{"Confirmation phrase didn't match"});
  EXPECT_TRUE(decisions().empty());
  dialogs_.press("OK");
  EXPECT_TRUE(decided({"a=deny"}));
}

TEST_F(ApprovalsTest, ACancelledConfirmationDeniesWithoutAWord) {
  pend({"a"});
  dialogs_.press("Always allow…");
  dialogs_.press("Cancel");
  EXPECT_TRUE(decided({"a=deny"}));
  EXPECT_TRUE(dialogs_.alerts().empty());
}

TEST_F(ApprovalsTest, ARequestThatIsGoneIsForgottenAndAskedAboutAgainWhenItReturns) {
  pend({"a", "b"});
  pend({"a"});
  pend({"a", "b"});
  EXPECT_EQ(prompts(), Strings{"a"});
  pend({"b"});
  EXPECT_EQ(prompts(), Strings{"b"});
  EXPECT_EQ(notified(), Strings{"b"});
  pend({});
  EXPECT_EQ(prompts(), Strings{});
  EXPECT_EQ(notified(), Strings{});
  pend({"a"});
  EXPECT_EQ(prompts(), Strings{"a"});
  EXPECT_TRUE(decisions().empty());
}

TEST_F(ApprovalsTest, ARequestThatCannotBeShownWaitsForTheMenu) {
  pend({"a"});
  dialogs_.failToShow();
  pend({"a"});
  EXPECT_EQ(prompts(), Strings{});
  EXPECT_TRUE(decisions().empty());
  desktop_.item.events.chosen(MenuAction(TrayAction(menuActions::ReviewPendingApprovals())));
  EXPECT_EQ(prompts(), Strings{"a"});
  EXPECT_EQ(desktop_.notifications.size(), 1U);
}

TEST_F(ApprovalsTest, ANotificationLeadsToItsRequest) {
  pend({"a", "b"});
  dialogs_.failToShow();
  desktop_.events.notificationActivated("b");
  EXPECT_EQ(prompts(), Strings{"b"});
  EXPECT_TRUE(dialogs_.alerts()[0].requestedByUser);
  desktop_.events.notificationActivated("a");
  EXPECT_EQ(prompts(), Strings{"b"});
}

TEST_F(ApprovalsTest, MenuAndNotificationBringThePromptThatIsOpenToTheFront) {
  pend({"a", "b"});
  EXPECT_EQ(dialogs_.timesBroughtToFront(), 0);
  desktop_.item.events.chosen(MenuAction(TrayAction(menuActions::ReviewPendingApprovals())));
  EXPECT_EQ(dialogs_.timesBroughtToFront(), 1);
  desktop_.events.notificationActivated("a");
  EXPECT_EQ(dialogs_.timesBroughtToFront(), 2);
  EXPECT_EQ(prompts(), Strings{"a"});
  dialogs_.press("Always allow…");
  desktop_.item.events.chosen(MenuAction(TrayAction(menuActions::ReviewPendingApprovals())));
  EXPECT_EQ(dialogs_.timesBroughtToFront(), 1) << "the confirmation";
  ASSERT_EQ(dialogs_.alerts().size(), 1U);
}

TEST_F(ApprovalsTest, WhatComesAfterAnAnswerIsUnrequestedAgain) {
  pend({"a", "b"});
  dialogs_.failToShow();
  desktop_.item.events.chosen(MenuAction(TrayAction(menuActions::ReviewPendingApprovals())));
  dialogs_.press("Deny");
  ASSERT_TRUE(runtime_.runUntil([&] { return prompts() == Strings{"b"}; }));
  EXPECT_FALSE(dialogs_.alerts()[0].requestedByUser);
}

TEST_F(ApprovalsTest, ADecisionThatTheAgentRefusesIsSaidAndNotAskedAgain) {
  agent_.answer("POST /api/approvals", 409, R"({"error":"too late"})");
  pend({"a"});
  dialogs_.press("Allow once");
  ASSERT_TRUE(runtime_.runUntil([&] { return !dialogs_.alerts().empty(); }));
  const auto alert = dialogs_.alerts()[0];
  EXPECT_EQ(alert.messageText, "Couldn't update shared folders");
  EXPECT_EQ(alert.informativeText, "too late");
  desktop_.item.events.chosen(MenuAction(TrayAction(menuActions::ReviewPendingApprovals())));
  EXPECT_EQ(dialogs_.timesBroughtToFront(), 1);
  dialogs_.press("OK");
  pend({"a"});
  EXPECT_EQ(prompts(), Strings{});
}

TEST_F(ApprovalsTest, TheNextRequestIsAskedAboutWhenTheErrorOfTheFirstWasSeen) {
  agent_.answer("POST /api/approvals", 409, R"({"error":"too late"})");
  pend({"a", "b"});
  dialogs_.press("Deny");
  ASSERT_TRUE(runtime_.runUntil([&] { return !dialogs_.alerts().empty(); }));
  pend({"a", "b"});
  EXPECT_EQ(prompts(), Strings{"Couldn't update shared folders"});
  dialogs_.press("OK");
  EXPECT_EQ(prompts(), Strings{"b"});
}

TEST_F(ApprovalsTest, AnErrorThatANewerOneReplacesHoldsNothingUp) {
  agent_.answer("POST /api/approvals", 409, R"({"error":"too late"})");
  agent_.answer("DELETE /api/escape-grants", 500, R"({"error":"no"})");
  pend({"a", "b"});
  dialogs_.press("Deny");
  ASSERT_TRUE(runtime_.runUntil([&] { return !dialogs_.alerts().empty(); }));
  const EscapeGrant grant{.path = "/etc/a", .root = "/r", .kind = "path", .grantedAt = 1};
  desktop_.item.events.chosen(MenuAction(TrayAction(menuActions::RevokeEscapeGrant{grant})));
  EXPECT_TRUE(runtime_.runUntil([&] {
    return prompts() == Strings{"Couldn't update shared folders", "b"};
  }));
  EXPECT_EQ(dialogs_.alerts()[0].informativeText, "no");
}

TEST_F(ApprovalsTest, RevokingAnExceptionIsSentAtOnce) {
  agent_.answer("DELETE /api/escape-grants", 200, R"({"escapeGrants":[]})");
  const EscapeGrant grant{.path = "/etc/a", .root = "/r", .kind = "path", .grantedAt = 1};
  desktop_.item.events.chosen(MenuAction(TrayAction(menuActions::RevokeEscapeGrant{grant})));
  EXPECT_TRUE(
      runtime_.runUntil([&] { return agent_.requestCount("DELETE /api/escape-grants") == 1; }));
  agent_.answer("DELETE /api/escape-grants", 500, R"({"error":"no"})");
  desktop_.item.events.chosen(MenuAction(TrayAction(menuActions::RevokeEscapeGrant{grant})));
  ASSERT_TRUE(runtime_.runUntil([&] { return !dialogs_.alerts().empty(); }));
  EXPECT_EQ(dialogs_.alerts()[0].informativeText, "no");
}

}  // namespace
}  // namespace zephyl
