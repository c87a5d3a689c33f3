#include "ZephylTray/Actions/ServerActions.hpp"

#include <algorithm>

#include <gtest/gtest.h>

#include "Support/FakeDialogs.hpp"

namespace zephyl {
namespace {

/// Actions on a fake registry. `steps_` records their effects on other components.
class ServerActionsTest : public ::testing::Test {
 protected:
  using Strings = std::vector<std::string>;

  ServerActionsTest() {
    actions_->onChange = [this] { steps_.emplace_back("change"); };
  }

  void step(const std::string& text) { steps_.push_back(text); }
  ServerEntry& entry(const std::string& id) {
    return *std::ranges::find(entries_, id, &ServerEntry::id);
  }
  Result<ServerEntry> add(const std::string& label, const std::optional<std::string>& address,
                          const std::optional<std::string>& fingerprint) {
    if (failure_) return *failure_;
    const auto known = std::ranges::find(entries_, fingerprint, &ServerEntry::tailnetFingerprint);
    if (known != entries_.end()) return *known;
    entries_.push_back({.id = "new",
                        .label = label,
                        .address = address,
                        .tailnetFingerprint = fingerprint,
                        .enabled = true});
    return entries_.back();
  }

  /// Removes a server whose children end at once, and returns the failure; nullopt on success.
  std::optional<std::string> remove(const std::string& id) {
    std::optional<ServerActions::Failure> result;
    actions_->removeServer(id, [&](auto failure) { result = std::move(failure); });
    if (!result) std::exchange(tailnetsEnded_, nullptr)();
    return result.value();
  }

  const std::string fingerprint_ = std::string(32, 'a');
  const std::string key_ = "inv_v2_" + fingerprint_ + "_one";
  std::vector<ServerEntry> entries_;
  std::optional<Error> failure_;  // the result of every change
  std::optional<std::string> enrolment_;
  Strings steps_;
  Task tailnetsEnded_;
  test::FakeDialogs dialogs_;
  std::shared_ptr<ServerActions> actions_ = std::make_shared<ServerActions>(ServerActions::Port{
      .all = [this] { return ServerList(entries_); },
      .matching =
          [this](std::string_view fingerprint) {
            const auto found = std::ranges::find(entries_, std::string(fingerprint),
                                                 &ServerEntry::tailnetFingerprint);
            return found == entries_.end() ? std::nullopt : std::optional(*found);
          },
      .add = [this](const auto& label, const auto& address,
                    const auto& fingerprint) { return add(label, address, fingerprint); },
      .update = [this](const auto& id, const auto& mutation) -> Result<void> {
        if (failure_) return *failure_;
        mutation(entry(id));
        return {};
      },
      .remove = [this](const auto& id) -> Result<void> {
        if (failure_) return *failure_;
        std::erase_if(entries_, [&](const auto& each) { return each.id == id; });
        return {};
      },
      .setEnrolment = [this](const auto& fingerprint) { enrolment_ = fingerprint; },
      .enrol = [this](const auto& server,
                      const auto& key) { step("enrol " + server.id + " " + std::string(key)); },
      .suspendTailnet = [this](const auto& id) { step("suspend " + id); },
      .resumeTailnet = [this](const auto& id) { step("resume " + id); },
      .whenTailnetsEnded =
          [this](auto then) {
            tailnetsEnded_ = [earlier = tailnetsEnded_, then] {
              if (earlier) earlier();
              then();
            };
          },
      .syncTailnets = [this] { step("sync"); },
      .restartAgent = [this] { step("restart agent"); },
      .ask = [this](const auto& alert, auto done) { return dialogs_.presentAlert(alert, done); },
  });
};

TEST_F(ServerActionsTest, RedeemingRegistersTheServerEnrolsItAndRestartsTheAgent) {
  EXPECT_EQ(actions_->redeem(" inv_v2_" + std::string(32, 'A') + "_one\n"), std::nullopt);
  ASSERT_EQ(entries_.size(), 1U);
  EXPECT_EQ(entries_[0].tailnetFingerprint, fingerprint_);
  EXPECT_EQ(enrolment_, fingerprint_);
  EXPECT_EQ(steps_, (Strings{"enrol new hskey-auth-one", "restart agent", "change"}));
}

TEST_F(ServerActionsTest, ASecondKeyForAKnownServerKeepsItsEntry) {
  entries_ = {
      {.id = "a", .label = "Lab", .address = "http://lab", .tailnetFingerprint = fingerprint_}};
  EXPECT_EQ(actions_->redeem("\tinv1_" + std::string(32, 'A') + "_two "), std::nullopt);
  ASSERT_EQ(entries_.size(), 1U);
  EXPECT_EQ(entries_[0].label, "Lab");
  EXPECT_EQ(steps_.front(), "enrol a two");
}

TEST_F(ServerActionsTest, AKeyThatCannotBeReadChangesNothing) {
  EXPECT_EQ(actions_->redeem("inv_v2_xyz_"),
            "The invite key's fingerprint is invalid. Ask for a fresh invite.");
  EXPECT_TRUE(entries_.empty());
  EXPECT_FALSE(enrolment_);
  EXPECT_TRUE(steps_.empty());
}

TEST_F(ServerActionsTest, AServerThatCannotBeSavedIsNotJoined) {
  failure_ = Error{"disk full"};
  EXPECT_EQ(actions_->redeem(key_),
            "The server could not be saved, so the invite key was not used: disk full");
  EXPECT_FALSE(enrolment_);
  EXPECT_TRUE(steps_.empty());
}

TEST_F(ServerActionsTest, AChangeThatCannotBeSavedIsReported) {
  entries_ = {{.id = "a", .enabled = true}};
  failure_ = Error{"disk full"};
  const auto unchanged = "The change could not be saved, so nothing was changed: disk full";
  EXPECT_EQ(actions_->setServerLabel("a", "Lab"), unchanged);
  EXPECT_EQ(actions_->setServerAccent("a", "#336699"), unchanged);
  steps_.clear();
  EXPECT_EQ(actions_->setServerEnabled("a", false), unchanged);
  EXPECT_TRUE(steps_.empty());
}

TEST_F(ServerActionsTest, AServerThatCannotBeRemovedIsStartedAgain) {
  entries_ = {{.id = "a", .tailnetFingerprint = fingerprint_}};
  enrolment_ = fingerprint_;
  failure_ = Error{"disk full"};
  EXPECT_NE(remove("a"), std::nullopt);
  EXPECT_EQ(steps_, (Strings{"suspend a", "resume a", "sync"}));
  EXPECT_EQ(enrolment_, fingerprint_);
}

TEST_F(ServerActionsTest, AServerIsRemovedOnlyWhenTheChildrenOfItsTailnetHaveEnded) {
  entries_ = {{.id = "a", .tailnetFingerprint = fingerprint_}};
  bool removed = false;
  actions_->removeServer("a", [&](const auto& failure) { removed = !failure; });
  EXPECT_EQ(steps_, Strings{"suspend a"});
  EXPECT_EQ(entries_.size(), 1U);
  tailnetsEnded_();
  EXPECT_TRUE(removed);
  EXPECT_TRUE(entries_.empty());
}

TEST_F(ServerActionsTest, AServerThatIsJoinedAgainDuringItsRemovalStays) {
  entries_ = {{.id = "a", .tailnetFingerprint = fingerprint_}};
  ServerActions::Failure failure;
  actions_->removeServer("a", [&](const auto& result) { failure = result; });
  EXPECT_EQ(actions_->redeem(key_), std::nullopt);
  tailnetsEnded_();
  EXPECT_EQ(failure, "The server was joined again meanwhile, so it was not removed.");
  ASSERT_EQ(entries_.size(), 1U);
  EXPECT_EQ(enrolment_, fingerprint_);
  EXPECT_EQ(steps_.back(), "resume a");
  std::exchange(tailnetsEnded_, nullptr);
  EXPECT_EQ(remove("a"), std::nullopt) << "a later removal counts";
}

TEST_F(ServerActionsTest, AServerIsRemovedOnce) {
  entries_ = {{.id = "a"}};
  std::vector<ServerActions::Failure> results;
  for (int i = 0; i < 2; ++i) {
    actions_->removeServer("a", [&](const auto& result) { results.push_back(result); });
  }
  tailnetsEnded_();
  EXPECT_EQ(results, (std::vector<ServerActions::Failure>{std::nullopt, "That server is gone."}));
  EXPECT_EQ(std::ranges::count(steps_, "restart agent"), 1);
}

TEST_F(ServerActionsTest, ConnectingAServerThatIsGoneShowsNothing) {
  actions_->connectServer("none");
  EXPECT_TRUE(dialogs_.alerts().empty());
  EXPECT_TRUE(steps_.empty());
}

TEST_F(ServerActionsTest, SuccessIsReportedWhenTheChildrenHaveEndedAndAFailureAtOnce) {
  std::vector<ServerActions::Failure> results;
  const auto store = [&](auto result) { results.push_back(std::move(result)); };
  actions_->complete("no", store);
  ASSERT_EQ(results, std::vector<ServerActions::Failure>{"no"});
  actions_->complete(std::nullopt, store);
  EXPECT_EQ(results.size(), 1U);
  tailnetsEnded_();
  EXPECT_EQ(results.back(), std::nullopt);
}

TEST_F(ServerActionsTest, ARemovedServerCannotBeChanged) {
  EXPECT_EQ(actions_->setServerLabel("none", "x"), "That server is gone.");
  EXPECT_EQ(actions_->setServerAccent("none", "x"), "That server is gone.");
  EXPECT_EQ(actions_->setServerEnabled("none", true), "That server is gone.");
  EXPECT_EQ(remove("none"), "That server is gone.");
  EXPECT_TRUE(steps_.empty());
}

TEST_F(ServerActionsTest, LabelAndAccentAreStoredTrimmed) {
  entries_ = {{.id = "a"}};
  EXPECT_EQ(actions_->setServerLabel("a", " \tLab "), std::nullopt);
  EXPECT_EQ(actions_->setServerAccent("a", " #123456 "), std::nullopt);
  EXPECT_EQ(entry("a").label, "Lab");
  EXPECT_EQ(entry("a").accent, "#123456");
  EXPECT_EQ(actions_->setServerAccent("a", "  "), std::nullopt);
  EXPECT_EQ(entry("a").accent, std::nullopt);
  EXPECT_EQ(steps_, (Strings{"change", "change", "change"}));
}

TEST_F(ServerActionsTest, EnablingAServerUpdatesTailnetsAgentAndMenu) {
  entries_ = {{.id = "a"}};
  EXPECT_EQ(actions_->setServerEnabled("a", true), std::nullopt);
  EXPECT_TRUE(entry("a").enabled);
  EXPECT_EQ(steps_, (Strings{"sync", "restart agent", "change"}));
}

TEST_F(ServerActionsTest, RemovingTheLastJoinedServerForgetsTheEnrolment) {
  entries_ = {{.id = "a", .tailnetFingerprint = fingerprint_},
              {.id = "b", .tailnetFingerprint = std::string(32, 'b')},
              {.id = "c"}};
  enrolment_ = fingerprint_;
  EXPECT_EQ(remove("a"), std::nullopt);
  EXPECT_EQ(steps_, (Strings{"suspend a", "resume a", "sync", "restart agent", "change"}));
  EXPECT_TRUE(enrolment_);
  EXPECT_EQ(remove("b"), std::nullopt);
  EXPECT_FALSE(enrolment_);
  ASSERT_EQ(entries_.size(), 1U);
}

TEST_F(ServerActionsTest, TheUserIsAlertedIfAServerCannotBeEnabled) {
  entries_ = {{.id = "a"}};
  actions_->connectServer("a");
  EXPECT_TRUE(dialogs_.alerts().empty());
  EXPECT_TRUE(entry("a").enabled);
  failure_ = Error{"disk full"};
  actions_->connectServer("a");
  ASSERT_EQ(dialogs_.alerts().size(), 1U);
  EXPECT_EQ(dialogs_.alerts()[0].heading, "The server couldn't be connected");
  EXPECT_EQ(dialogs_.alerts()[0].explanation,
            "The change could not be saved, so nothing was changed: disk full");
}

TEST_F(ServerActionsTest, AsksForAnInviteKeyAndReportsWhyItFailed) {
  actions_->promptForInviteKey();
  ASSERT_EQ(dialogs_.alerts().size(), 1U);
  EXPECT_EQ(dialogs_.alerts()[0].heading, "Join the Zephyl Tailnet");
  EXPECT_TRUE(dialogs_.alerts()[0].requestedByUser);
  dialogs_.press("Join", "inv_v2_nonsense");
  ASSERT_EQ(dialogs_.alerts().size(), 1U);
  EXPECT_EQ(dialogs_.alerts()[0].heading, "That invite key didn't work");
  EXPECT_EQ(dialogs_.alerts()[0].explanation, "That doesn't look like a Zephyl invite key.");
  dialogs_.press("OK");
  EXPECT_TRUE(dialogs_.alerts().empty());
}

TEST_F(ServerActionsTest, AskingAgainBringsTheOpenPromptToTheFront) {
  actions_->promptForInviteKey();
  actions_->promptForInviteKey();
  ASSERT_EQ(dialogs_.alerts().size(), 1U);
  EXPECT_EQ(dialogs_.timesBroughtToFront(), 1);
  dialogs_.press("Cancel");
  actions_->promptForInviteKey();
  EXPECT_EQ(dialogs_.timesBroughtToFront(), 0);
}

TEST_F(ServerActionsTest, JoinsWithAValidKeyUnlessThePromptIsCancelled) {
  actions_->promptForInviteKey();
  dialogs_.press("Cancel", key_);
  EXPECT_TRUE(entries_.empty());
  actions_->promptForInviteKey();
  dialogs_.press("Join", key_);
  EXPECT_EQ(entries_.size(), 1U);
  EXPECT_TRUE(dialogs_.alerts().empty());
}

}  // namespace
}  // namespace zephyl
