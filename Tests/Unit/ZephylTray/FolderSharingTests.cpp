#include "ZephylTray/Actions/FolderSharing.hpp"

#include <gtest/gtest.h>

#include "Support/FakeDesktop.hpp"
#include "Support/FakeDialogs.hpp"

namespace zephyl {
namespace {

/// Folder sharing with an agent that records its requests, and two servers.
class FolderSharingTest : public ::testing::Test {
 protected:
  using Strings = std::vector<std::string>;

  FolderSharing::Completion noteAnswer() {
    return [this](const FolderSharing::Failure& failure) {
      answers_.push_back(failure.value_or("ok"));
    };
  }
  void addRoot(const std::string& id = "a") { sharing_->shellAddRoot(id, noteAnswer()); }
  void setShared(const std::string& root, bool shared) {
    sharing_->shellSetRootShared("a", root, shared, noteAnswer());
  }
  void record(const std::string& call, const FolderSharing::RootsCompletion& done) {
    calls_.push_back(call);
    done(agentAnswer_);
  }
  static std::string joined(const Strings& ids) {
    std::string all;
    for (const auto& id : ids) all += " " + id;
    return all;
  }

  FolderSharing::Roots roots_ =
      std::vector<SharedRoot>{{.root = "/a", .name = "a", .servers = Strings{"a", "gone"}},
                              {.root = "/all", .name = "all"}};
  FolderSharing::Roots agentAnswer_ = std::vector<SharedRoot>{};
  Strings calls_;
  Strings answers_;
  int refreshes_ = 0;
  test::FakeDesktop desktop_;
  test::FakeDialogs dialogs_;
  std::shared_ptr<FolderSharing> sharing_ = std::make_shared<FolderSharing>(FolderSharing::Port{
      .getRoots = [this](auto done) { done(roots_); },
      .addRoot = [this](const auto& path, const auto& id,
                        auto done) { record("add " + path + " " + id, done); },
      .removeRoot = [this](const auto& path, auto done) { record("remove " + path, done); },
      .setRootServers = [this](const auto& path, const auto& ids,
                               auto done) { record("set " + path + joined(ids), done); },
      .refresh = [this] { ++refreshes_; },
      .desktopPicker = [this](const auto& request,
                              auto done) { desktop_.chooseFolder(request, done); },
      .ownPicker = [this](const auto& request,
                          auto done) { return dialogs_.chooseFolder(request, done); },
      .servers =
          [] {
            return ServerList({{.id = "a"}, {.id = "b"}});
          },
  });
};

TEST_F(FolderSharingTest, AFolderIsChosenAndSharedWithOneServer) {
  addRoot();
  ASSERT_EQ(desktop_.folderRequests.size(), 1U);
  EXPECT_EQ(desktop_.folderRequests[0].prompt, "Share");
  EXPECT_EQ(desktop_.folderRequests[0].message,
            "Choose a project folder to share with this Zephyl.");
  desktop_.folderAnswer({.answer = "/home/me/project"});
  EXPECT_EQ(calls_, Strings{"add /home/me/project a"});
  EXPECT_EQ(answers_, Strings{"ok"});
  EXPECT_EQ(refreshes_, 1);
}

TEST_F(FolderSharingTest, ACancelledChoiceSucceeds) {
  addRoot();
  desktop_.folderAnswer({.answer = std::nullopt});
  EXPECT_EQ(answers_, Strings{"ok"});
  EXPECT_TRUE(calls_.empty());
}

TEST_F(FolderSharingTest, WithoutAPortalTheOwnFolderDialogIsUsed) {
  addRoot();
  desktop_.folderAnswer(FolderChoice::unanswered(Error{"no portal"}));
  ASSERT_EQ(dialogs_.folderRequests, desktop_.folderRequests);
  dialogs_.folderAnswer(Error{"no screen"});
  EXPECT_EQ(answers_, Strings{"no screen"});
}

TEST_F(FolderSharingTest, AnUnusableAnswerIsAnErrorAndIsNotAskedAgain) {
  addRoot();
  desktop_.folderAnswer({.answer = Error{"not on this machine"}});
  EXPECT_EQ(answers_, Strings{"not on this machine"});
  EXPECT_TRUE(dialogs_.folderRequests.empty());
  EXPECT_TRUE(calls_.empty());
}

TEST_F(FolderSharingTest, SeveralRequestsForAFolderAreAllAnswered) {
  for (const auto* id : {"a", "b"}) {
    addRoot(id);
    desktop_.folderAnswer(FolderChoice::unanswered(Error{"no portal"}));
  }
  ASSERT_EQ(dialogs_.openFolderQuestions(), 2U);
  dialogs_.folderAnswer(std::nullopt);
  EXPECT_EQ(answers_, Strings{"ok"});
  dialogs_.folderAnswer(Error{"gone"});
  EXPECT_EQ(answers_, (Strings{"ok", "gone"}));
  EXPECT_EQ(dialogs_.openFolderQuestions(), 0U);
}

TEST_F(FolderSharingTest, AnUnknownServerGetsNoFolder) {
  addRoot("none");
  EXPECT_EQ(answers_, Strings{"That is not a Zephyl this machine knows about."});
  EXPECT_TRUE(desktop_.folderRequests.empty());
}

TEST_F(FolderSharingTest, AFolderWithoutServersIsRemoved) {
  setShared("/a", false);
  EXPECT_EQ(calls_, Strings{"remove /a"});
  EXPECT_EQ(answers_, Strings{"ok"});
  EXPECT_EQ(refreshes_, 1);
}

TEST_F(FolderSharingTest, AFolderSharedWithAllServersStaysSharedWithTheOthers) {
  setShared("/all", false);
  EXPECT_EQ(calls_, Strings{"set /all b"});
}

TEST_F(FolderSharingTest, AFolderThatIsNotSharedHasNoScope) {
  setShared("/c", true);
  EXPECT_EQ(answers_, Strings{"That folder is not shared from this machine."});
  EXPECT_TRUE(calls_.empty());
}

TEST_F(FolderSharingTest, ARefusalOfTheAgentIsReported) {
  agentAnswer_ = Error{"disk full"};
  setShared("/all", false);
  EXPECT_EQ(answers_, Strings{"disk full"});
  EXPECT_EQ(refreshes_, 1);
  roots_ = Error{"refused"};
  setShared("/all", false);
  EXPECT_EQ(answers_, (Strings{"disk full", "refused"}));
}

}  // namespace
}  // namespace zephyl
