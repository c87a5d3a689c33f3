#include "ZephylTray/Approvals/ApprovalPrompts.hpp"

#include <deque>
#include <functional>

#include <gtest/gtest.h>

#include "Support/FakeDesktop.hpp"
#include "Support/FakeDialogs.hpp"
#include "Support/ManualClock.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

/// Prompts with an agent that records decisions, and a user who answers the dialogs.
class ApprovalPromptsTest : public ::testing::Test {
 protected:
  using Strings = std::vector<std::string>;

  /// Reports these requests as pending.
  void pend(const Strings& ids) {
    auto& pending = pending_.emplace();
    for (const auto& id : ids) pending.push_back({.id = id, .tool = "cat", .target = "/etc/" + id});
    prompts_->processPendingApprovals(std::vector(pending));
  }
  /// Returns the ids of the requests whose prompts are on screen, and the titles of other alerts.
  Strings prompts() {
    Strings shown;
    for (const auto& alert : dialogs_.alerts()) {
      const auto at = alert.explanation.find("/etc/");
      const bool isPrompt = at != std::string::npos;
      shown.push_back(isPrompt ? alert.explanation.substr(at + 5, 1) : alert.heading);
    }
    return shown;
  }
  /// Answers the oldest decision in place of the agent.
  void answer(const Result<void>& result = {}) {
    const auto done = sent_.front();
    sent_.pop_front();
    done(result);
  }

  static Error refused() {
    Error error{"could not connect"};
    error.nothingSent = true;
    return error;
  }

  std::optional<std::vector<PendingApproval>> pending_;
  Strings decisions_;  // such as "a=deny"
  std::deque<ApprovalPrompts::Decided> sent_;
  int refreshes_ = 0;
  test::FakeDesktop desktop_;
  test::FakeDialogs dialogs_;
  test::ManualClock clock_;
  std::shared_ptr<ApprovalPrompts> prompts_ = std::make_shared<ApprovalPrompts>(port());

 private:
  ApprovalPrompts::Port port();
};

ApprovalPrompts::Port ApprovalPromptsTest::port() {
  const auto send = [this](const std::string& decision, const ApprovalPrompts::Decided& done) {
    decisions_.push_back(decision);
    sent_.push_back(done);
  };
  return {
      .notify = std::bind_front(&test::FakeDesktop::postNotification, &desktop_),
      .withdraw = std::bind_front(&test::FakeDesktop::removeNotification, &desktop_),
      .ask = std::bind_front(&test::FakeDialogs::presentAlert, &dialogs_),
      .decide =
          [send](const auto& id, const auto& decision, const auto& confirm, auto done) {
            send(id + "=" + decision + (confirm ? " " + *confirm : ""), done);
          },
      .revoke = [send](const auto& grant, auto done) { send("revoke " + grant.path, done); },
      .refresh = [this] { ++refreshes_; },
      .pending = [this] { return pending_; },
      .now = std::bind_front(&test::ManualClock::now, &clock_),
      .after = std::bind_front(&test::ManualClock::afterDetached, &clock_),
  };
}

TEST_F(ApprovalPromptsTest, ANewRequestPostsANotificationAndOpensAPrompt) {
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
  EXPECT_EQ(alert.heading, "Allow access outside the shared folder?");
  EXPECT_EQ(alert.buttons, (Strings{"Deny", "Allow once", "Always allow…"}));
  EXPECT_EQ(alert.safeButton, 0U);
  EXPECT_FALSE(alert.requestedByUser);
}

TEST_F(ApprovalPromptsTest, EachButtonIsADecision) {
  pend({"a"});
  dialogs_.press("Deny");
  answer();
  pend({"b"});
  dialogs_.press("Allow once");
  EXPECT_EQ(decisions_, (Strings{"a=deny", "b=approve"}));
}

TEST_F(ApprovalPromptsTest, TheNextPromptOpensWhenTheDecisionWasSent) {
  pend({"a", "b"});
  EXPECT_EQ(prompts(), Strings{"a"});
  EXPECT_EQ(desktop_.notifications.size(), 1U);
  dialogs_.press("Deny");
  EXPECT_EQ(prompts(), Strings{});
  answer();
  EXPECT_EQ(prompts(), Strings{"b"});
  EXPECT_EQ(decisions_, Strings{"a=deny"});
  ASSERT_EQ(desktop_.notifications.size(), 1U);
  EXPECT_EQ(desktop_.notifications[0].identifier, "b");
}

TEST_F(ApprovalPromptsTest, NoPromptOpensWhileADecisionIsBeingSent) {
  pend({"a"});
  dialogs_.press("Deny");
  pend({"a", "b"});
  EXPECT_EQ(prompts(), Strings{});
}

TEST_F(ApprovalPromptsTest, ThePhraseCreatesAPermanentException) {
  for (const char* typed : {"ALWAYS ALLOW", " \tALWAYS ALLOW "}) {
    decisions_.clear();
    pend({"a"});
    dialogs_.press("Always allow…");
    ASSERT_EQ(dialogs_.alerts().back().heading, "⚠️ Create a permanent exception?");
    dialogs_.press("Create permanent exception", typed);
    EXPECT_EQ(decisions_, Strings{"a=always ALWAYS ALLOW"});
    answer();
    pend({});
  }
}

TEST_F(ApprovalPromptsTest, AWrongPhraseDeniesWithAWarning) {
  pend({"a"});
  dialogs_.press("Always allow…");
  dialogs_.press("Create permanent exception", "always allow");
  ASSERT_EQ(prompts(), Strings{"Confirmation phrase didn't match"});
  EXPECT_EQ(decisions_, Strings{});
  dialogs_.press("OK");
  EXPECT_EQ(decisions_, Strings{"a=deny"});
}

TEST_F(ApprovalPromptsTest, ACancelledConfirmationDeniesWithoutAnAlert) {
  pend({"a"});
  dialogs_.press("Always allow…");
  dialogs_.press("Cancel");
  EXPECT_EQ(decisions_, Strings{"a=deny"});
  EXPECT_EQ(prompts(), Strings{});
}

TEST_F(ApprovalPromptsTest, AWithdrawnRequestIsForgottenAndPromptedAgainIfItReturns) {
  pend({"a", "b"});
  pend({"a"});
  pend({"a", "b"});
  EXPECT_EQ(prompts(), Strings{"a"});
  pend({"b"});
  EXPECT_EQ(prompts(), Strings{"b"});
  ASSERT_EQ(desktop_.notifications.size(), 1U);
  EXPECT_EQ(desktop_.notifications[0].identifier, "b");
  pend({});
  EXPECT_EQ(prompts(), Strings{});
  EXPECT_TRUE(desktop_.notifications.empty());
  pend({"a"});
  EXPECT_EQ(prompts(), Strings{"a"});
  EXPECT_EQ(decisions_, Strings{});
}

TEST_F(ApprovalPromptsTest, AnotherRequestWithTheSameIdIsPromptedAnew) {
  pend({"a"});
  const auto withTarget = [this](const char* target) {
    pending_ = {{.id = "a", .tool = "cat", .target = target}};
  };
  withTarget("/etc/b");
  prompts_->processPendingApprovals(*pending_);
  EXPECT_EQ(prompts(), Strings{"b"});
  EXPECT_EQ(desktop_.notifications.size(), 1U);
  dialogs_.press("Allow once");
  EXPECT_EQ(decisions_, Strings{"a=approve"});
  answer();
  prompts_->processPendingApprovals(*pending_);
  EXPECT_EQ(prompts(), Strings{}) << "it was decided";

  withTarget("/etc/c");
  prompts_->processPendingApprovals(*pending_);
  EXPECT_EQ(prompts(), Strings{"c"});
}

TEST_F(ApprovalPromptsTest, ADecisionIsNotSentForAnotherRequestWithTheSameId) {
  for (const char* button : {"Deny", "Allow once"}) {
    pend({"a"});
    pending_ = {{.id = "a", .tool = "cat", .target = "/etc/b"}};  // by a poll
    dialogs_.press(button);
    EXPECT_EQ(decisions_, Strings{});
    EXPECT_EQ(prompts(), Strings{"b"});
    pend({});
  }
}

TEST_F(ApprovalPromptsTest, NamesThatChangeDoNotMakeAnotherRequest) {
  pend({"a"});
  pending_->front().userName = "Ann";
  pending_->front().createdAt = 1;
  prompts_->processPendingApprovals(*pending_);
  EXPECT_EQ(prompts(), Strings{"a"});
  dialogs_.press("Allow once");
  EXPECT_EQ(decisions_, Strings{"a=approve"});
}

TEST_F(ApprovalPromptsTest, ARequestThatCannotBeShownWaitsForTheMenu) {
  pend({"a"});
  dialogs_.failToShow();
  pend({"a"});
  EXPECT_EQ(prompts(), Strings{});
  EXPECT_EQ(decisions_, Strings{});
  prompts_->reviewPendingApprovals();
  EXPECT_EQ(prompts(), Strings{"a"});
  EXPECT_EQ(desktop_.notifications.size(), 1U);
}

TEST_F(ApprovalPromptsTest, ChoosingANotificationOpensItsRequest) {
  pend({"a", "b"});
  dialogs_.failToShow();
  prompts_->reviewNotified("b");
  EXPECT_EQ(prompts(), Strings{"b"});
  EXPECT_TRUE(dialogs_.alerts()[0].requestedByUser);
  prompts_->reviewNotified("a");
  EXPECT_EQ(prompts(), Strings{"b"});
}

TEST_F(ApprovalPromptsTest, ThereIsNothingToReviewBeforeTheAgentHasReported) {
  prompts_->reviewPendingApprovals();
  prompts_->reviewNotified("a");
  EXPECT_EQ(prompts(), Strings{});
}

TEST_F(ApprovalPromptsTest, MenuAndNotificationBringTheOpenPromptToTheFront) {
  pend({"a", "b"});
  EXPECT_EQ(dialogs_.timesBroughtToFront(), 0);
  prompts_->reviewPendingApprovals();
  EXPECT_EQ(dialogs_.timesBroughtToFront(), 1);
  prompts_->reviewNotified("a");
  EXPECT_EQ(dialogs_.timesBroughtToFront(), 2);
  EXPECT_EQ(prompts(), Strings{"a"});
  dialogs_.press("Always allow…");
  prompts_->reviewPendingApprovals();
  EXPECT_EQ(dialogs_.timesBroughtToFront(), 1) << "the confirmation";
  ASSERT_EQ(dialogs_.alerts().size(), 1U);
}

TEST_F(ApprovalPromptsTest, APromptAfterAnAnswerIsUnrequestedAgain) {
  pend({"a", "b"});
  dialogs_.failToShow();
  prompts_->reviewPendingApprovals();
  dialogs_.press("Deny");
  answer();
  ASSERT_EQ(prompts(), Strings{"b"});
  EXPECT_FALSE(dialogs_.alerts()[0].requestedByUser);
}

TEST_F(ApprovalPromptsTest, ADecisionThatTheAgentRefusesIsReportedAndNotAskedAgain) {
  pend({"a"});
  dialogs_.press("Allow once");
  answer(Error{"too late"});
  ASSERT_EQ(prompts(), Strings{"Couldn't update shared folders"});
  EXPECT_EQ(dialogs_.alerts()[0].explanation, "too late");
  prompts_->reviewPendingApprovals();
  EXPECT_EQ(dialogs_.timesBroughtToFront(), 1);
  dialogs_.press("OK");
  pend({"a"});
  EXPECT_EQ(prompts(), Strings{});
}

TEST_F(ApprovalPromptsTest, TheNextPromptOpensWhenTheErrorWasAcknowledged) {
  pend({"a", "b"});
  dialogs_.press("Deny");
  answer(Error{"too late"});
  pend({"a", "b"});
  EXPECT_EQ(prompts(), Strings{"Couldn't update shared folders"});
  dialogs_.press("OK");
  EXPECT_EQ(prompts(), Strings{"b"});
}

TEST_F(ApprovalPromptsTest, AReplacedErrorDoesNotBlockTheNextRequest) {
  pend({"a", "b"});
  dialogs_.press("Deny");
  answer(Error{"too late"});
  prompts_->revokeEscapeGrant({.path = "/etc/a"});
  answer(Error{"no"});
  EXPECT_EQ(prompts(), (Strings{"Couldn't update shared folders", "b"}));
  EXPECT_EQ(dialogs_.alerts()[0].explanation, "no");
}

TEST_F(ApprovalPromptsTest, RevokingAnExceptionIsSentAtOnce) {
  prompts_->revokeEscapeGrant({.path = "/etc/a"});
  EXPECT_EQ(decisions_, Strings{"revoke /etc/a"});
  EXPECT_EQ(refreshes_, 0);
  answer();
  EXPECT_EQ(refreshes_, 1);
  prompts_->revokeEscapeGrant({.path = "/etc/a"});
  answer(Error{"no"});
  EXPECT_EQ(dialogs_.alerts().at(0).explanation, "no");
  EXPECT_EQ(refreshes_, 1);
}

TEST_F(ApprovalPromptsTest, AnAnswerAfterTheirDestructionIsIgnored) {
  pend({"a", "b"});
  dialogs_.press("Deny");
  prompts_.reset();
  answer();
  EXPECT_EQ(prompts(), Strings{});
  EXPECT_EQ(desktop_.notifications.size(), 1U);
}

TEST_F(ApprovalPromptsTest, ADecisionMadeElsewhereClosesThePromptOnceTheAgentHasAcceptedIt) {
  pend({"a", "b"});
  std::vector<Result<void>> outcomes;
  prompts_->answer("a", "approve", [&](const auto& outcome) { outcomes.push_back(outcome); });
  EXPECT_EQ(decisions_, Strings{"a=approve"});
  EXPECT_EQ(prompts(), Strings{"a"});
  answer();
  EXPECT_EQ(prompts(), Strings{"b"});
  ASSERT_EQ(desktop_.notifications.size(), 1U);
  EXPECT_EQ(desktop_.notifications[0].identifier, "b");
  EXPECT_EQ(refreshes_, 1);
  ASSERT_EQ(outcomes.size(), 1U);
  EXPECT_TRUE(outcomes[0]);
}

TEST_F(ApprovalPromptsTest, ADecisionMadeElsewhereKeepsThePromptOfAnotherRequest) {
  pend({"a", "b"});
  prompts_->answer("b", "always", [](const auto&) {});
  EXPECT_EQ(decisions_, Strings{"b=always ALWAYS ALLOW"});
  answer();
  EXPECT_EQ(prompts(), Strings{"a"});
  dialogs_.press("Deny");
  answer();
  EXPECT_EQ(prompts(), Strings{});  // although "b" is still listed
}

TEST_F(ApprovalPromptsTest, AFailureOfADecisionMadeElsewhereIsReportedOnlyToItsCaller) {
  pend({"a", "b"});
  Result<void> outcome;
  prompts_->answer("b", "deny", [&](const auto& result) { outcome = result; });
  answer(Error{"too late"});
  EXPECT_EQ(outcome.error().message, "too late");
  EXPECT_EQ(prompts(), Strings{"a"});
  dialogs_.press("Deny");
  answer();
  EXPECT_EQ(prompts(), Strings{"b"});
}

TEST_F(ApprovalPromptsTest, ADecisionIsSentAgainWhileTheAgentCannotBeConnected) {
  pend({"a", "b"});
  dialogs_.press("Allow once");
  answer(refused());
  clock_.advance(1s);
  EXPECT_EQ(decisions_, (Strings{"a=approve", "a=approve"})) << "one attempt at a time";
  EXPECT_EQ(prompts(), Strings{}) << "the next request waits for the decision";
  answer();
  clock_.advance(20s);
  EXPECT_EQ(decisions_.size(), 2U);
  EXPECT_EQ(prompts(), Strings{"b"});
}

TEST_F(ApprovalPromptsTest, ADecisionThatCouldNotBeSentWithinTenSecondsIsReported) {
  pend({"a"});
  dialogs_.press("Deny");
  for (auto waited = 0ms; waited < 10s; waited += 250ms) {
    answer(refused());
    EXPECT_EQ(prompts(), Strings{});
    clock_.advance(250ms);
  }
  answer(refused());
  EXPECT_EQ(prompts(), Strings{"Couldn't update shared folders"});
  clock_.advance(20s);
  EXPECT_EQ(decisions_.size(), 41U);
}

TEST_F(ApprovalPromptsTest, ADecisionThatWasSentIsNotSentAgain) {
  pend({"a"});
  dialogs_.press("Deny");
  answer(Error{"lost the connection"});
  EXPECT_EQ(prompts(), Strings{"Couldn't update shared folders"});
  clock_.advance(20s);
  EXPECT_EQ(decisions_, Strings{"a=deny"});
}

TEST_F(ApprovalPromptsTest, ADecisionIsNotSentAgainForAnotherRequestWithTheSameId) {
  pend({"a"});
  dialogs_.press("Allow once");
  answer(refused());
  pending_->front().target = "/etc/shadow";
  clock_.advance(20s);
  EXPECT_EQ(decisions_, Strings{"a=approve"});
  EXPECT_EQ(prompts(), Strings{"Couldn't update shared folders"});
}

TEST_F(ApprovalPromptsTest, ADecisionMadeElsewhereIsSentAgain) {
  pend({"a"});
  std::optional<Result<void>> outcome;
  prompts_->answer("a", "deny", [&](const auto& result) { outcome = result; });
  answer(refused());
  EXPECT_FALSE(outcome);
  clock_.advance(1s);
  answer();
  EXPECT_TRUE(outcome && *outcome);
  EXPECT_EQ(decisions_, (Strings{"a=deny", "a=deny"}));
}

TEST_F(ApprovalPromptsTest, OnlyAWaitingRequestCanBeDecidedElsewhere) {
  std::vector<std::string> reasons;
  const auto keep = [&](const Result<void>& outcome) {
    reasons.push_back(outcome.error().message);
  };
  prompts_->answer("a", "deny", keep);
  pend({"a"});
  prompts_->answer("b", "deny", keep);
  dialogs_.press("Allow once");
  prompts_->answer("a", "deny", keep);  // the prompt's own answer is on its way
  EXPECT_EQ(reasons, (Strings{"No request has this id.", "No request has this id.",
                              "This request is being decided already."}));
  EXPECT_EQ(decisions_, Strings{"a=approve"});
}

}  // namespace
}  // namespace zephyl
