#include "Desktop/Model/WindowModel.hpp"

#include <deque>
#include <map>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace zephyl::sandbox::desktop {
namespace {

using testing::ElementsAre;
using Focus = WindowModel::Focus;
using Link = WindowModel::Link;
using Page = WindowModel::Page;

constexpr auto twoServers = R"({"servers": [
  {"id": "a", "name": "Office", "accent": "", "enabled": true, "usesTailnet": true,
   "running": true, "enrolled": true},
  {"id": "b", "name": "Lab", "accent": "", "enabled": true, "usesTailnet": true,
   "running": true, "enrolled": true}]})";

/// A model with a fake tray, whose requests wait until the test answers them.
class WindowModelTest : public testing::Test {
 protected:
  struct Pending {
    Request request;
    WindowModel::Answered answered;
  };

  /// Answers the oldest request with its value in `answers_`.
  void answerNext() {
    ASSERT_FALSE(pending_.empty());
    const auto [request, answered] = std::move(pending_.front());
    pending_.pop_front();
    const auto found = answers_.find(request.method + " " + request.path);
    answered(found == answers_.end() ? Result<Answer>(Answer{200, R"({"ok": true})"})
                                     : found->second);
  }

  void answerAll() {
    while (!pending_.empty()) answerNext();
  }

  void poll() {
    model_.refresh();
    answerAll();
  }

  std::vector<std::string> paths() const {
    std::vector<std::string> paths;
    paths.reserve(pending_.size());
    for (const auto& [request, answered] : pending_) paths.push_back(request.path);
    return paths;
  }

  WindowModel::Done storeFailure() {
    return [this](const std::optional<std::string>& failure) { failures_.push_back(failure); };
  }

  std::deque<Pending> pending_;
  std::map<std::string, Result<Answer>> answers_{
      {"GET /status", Answer{200, R"({"available": true, "enrolled": true, "running": true})"}},
      {"GET /servers", Answer{200, twoServers}},
      {"GET /roots", Answer{200, R"({"roots": [{"root": "/src", "name": "src"}]})"}},
      {"GET /diagnostics", Answer{200, R"({"agent": {"reachable": true, "running": true,
          "state": "enrolled"}, "indexing": [], "model": {"phase": "ready", "downloadedBytes": 0,
          "totalBytes": 0}})"}}};
  std::vector<std::optional<std::string>> failures_;
  int changes_ = 0;
  WindowModel model_{{.ask =
                          [this](const Request& request, WindowModel::Answered answered) {
                            pending_.push_back({request, std::move(answered)});
                          },
                      .changed = [this] { ++changes_; }}};
};

// Polls

TEST_F(WindowModelTest, SendsTheRequestsOfAPollInOrder) {
  model_.refresh();
  EXPECT_THAT(paths(), ElementsAre("/status", "/roots"));
  answerNext();
  answerNext();
  for (const auto* const path : {"/servers", "/diagnostics"}) {
    EXPECT_THAT(paths(), ElementsAre(path));
    EXPECT_EQ(model_.link(), Link::waiting);
    answerNext();
  }
  EXPECT_TRUE(pending_.empty());
  EXPECT_EQ(model_.link(), Link::answers);
  EXPECT_EQ(model_.servers().size(), 2U);
  EXPECT_EQ(model_.folders()->front().root, "/src");
  EXPECT_EQ(model_.agent().text, "Agent connected");
}

TEST_F(WindowModelTest, HasOnePollUnderWayAtATime) {
  model_.refresh();
  model_.refresh();
  EXPECT_THAT(paths(), ElementsAre("/status", "/roots"));
}

TEST_F(WindowModelTest, IsNotDelayedBySlowFolders) {
  model_.refresh();
  auto folders = std::move(pending_.back());
  pending_.pop_back();
  answerAll();
  EXPECT_EQ(model_.link(), Link::answers);
  EXPECT_EQ(model_.folders(), std::nullopt);
  model_.refresh();
  EXPECT_THAT(paths(), ElementsAre("/status"));
  folders.answered(answers_.at("GET /roots"));
  EXPECT_EQ(model_.folders()->size(), 1U);
}

TEST_F(WindowModelTest, KeepsItsStateWhileTheTrayIsUnreachable) {
  poll();
  answers_.at("GET /status") = Error{"The tray does not answer: Connection refused"};
  poll();
  EXPECT_EQ(model_.link(), Link::gone);
  EXPECT_EQ(model_.servers().size(), 2U);
  answers_.at("GET /status") =
      Answer{200, R"({"available": true, "enrolled": true, "running": true})"};
  poll();
  EXPECT_EQ(model_.link(), Link::answers);
}

TEST_F(WindowModelTest, RecognizesAnotherRunOfTheTray) {
  answers_.at("GET /status") = Answer{403, R"({"error": "bad or missing onboarding token"})"};
  poll();
  EXPECT_EQ(model_.link(), Link::replaced);
}

TEST_F(WindowModelTest, HasNoFoldersWhileTheAgentDoesNotAnswer) {
  answers_.at("GET /roots") = Answer{502, R"({"error": "no agent"})"};
  poll();
  EXPECT_EQ(model_.link(), Link::answers);
  EXPECT_EQ(model_.folders(), std::nullopt);
}

TEST_F(WindowModelTest, WithoutATrayItSendsNothing) {
  model_.setAbsent();
  model_.refresh();
  EXPECT_TRUE(pending_.empty());
  EXPECT_EQ(model_.page(), Page::none);
}

// Changes and polls

TEST_F(WindowModelTest, PollsAfterAChange) {
  poll();
  model_.rename("a", "Home", storeFailure());
  EXPECT_THAT(paths(), ElementsAre("/servers/a/label"));
  EXPECT_EQ(pending_.front().request.body, R"({"label":"Home"})");
  answerNext();
  EXPECT_THAT(failures_, ElementsAre(std::nullopt));
  EXPECT_THAT(paths(), ElementsAre("/status", "/roots"));
}

TEST_F(WindowModelTest, DropsAPollThatBeganBeforeAChange) {
  poll();
  model_.refresh();
  answerNext();
  model_.setEnabled("a", false, storeFailure());
  EXPECT_THAT(paths(), ElementsAre("/roots", "/servers", "/servers/a/enabled"));
  changes_ = 0;
  answerNext();
  answerNext();
  EXPECT_THAT(paths(), ElementsAre("/servers/a/enabled"));
  EXPECT_EQ(changes_, 0);
  answerNext();
  EXPECT_THAT(paths(), ElementsAre("/status", "/roots"));
}

TEST_F(WindowModelTest, RepeatsAPollThatOverlappedAWholeChange) {
  poll();
  model_.refresh();
  model_.remove("a", storeFailure());
  auto remove = std::move(pending_.back());
  pending_.pop_back();
  remove.answered(Answer{200, R"({"ok": true})"});
  EXPECT_THAT(paths(), ElementsAre("/status", "/roots"));
  answerNext();
  answerNext();
  EXPECT_THAT(paths(), ElementsAre("/status", "/roots"));
}

TEST_F(WindowModelTest, ReportsARefusedChangeWithTheTraysMessage) {
  poll();
  answers_.emplace("DELETE /servers/a", Answer{400, R"({"error": "That server is gone."})"});
  model_.remove("a", storeFailure());
  answerAll();
  EXPECT_THAT(failures_, ElementsAre("That server is gone."));
}

TEST_F(WindowModelTest, KeepsPollingWhileTheUserChoosesAFolder) {
  poll();
  model_.shareFolder("a", storeFailure());
  model_.refresh();
  EXPECT_THAT(paths(), ElementsAre("/servers/a/roots", "/status", "/roots"));
}

// Pages

TEST_F(WindowModelTest, ShowsNoPageBeforeTheServersAreKnown) {
  EXPECT_EQ(model_.page(), Page::none);
  poll();
  EXPECT_EQ(model_.page(), Page::server);
  EXPECT_EQ(model_.selected()->id, "a");
  EXPECT_EQ(model_.takeFocus(), Focus::servers);
  EXPECT_EQ(model_.takeFocus(), std::nullopt);
}

TEST_F(WindowModelTest, WithoutServersItAsksForAnInviteKey) {
  answers_.at("GET /servers") = Answer{200, R"({"servers": []})"};
  poll();
  EXPECT_EQ(model_.page(), Page::join);
  EXPECT_EQ(model_.selected(), nullptr);
  EXPECT_EQ(model_.takeFocus(), Focus::inviteKey);
}

TEST_F(WindowModelTest, KeepsTheSelectedServerFromPollToPoll) {
  poll();
  model_.select("b");
  poll();
  EXPECT_EQ(model_.selected()->id, "b");
  model_.showJoinPage();
  poll();
  EXPECT_EQ(model_.page(), Page::join);
}

TEST_F(WindowModelTest, SelectsAnotherServerWhenTheSelectedOneIsRemoved) {
  poll();
  model_.select("gone");
  EXPECT_EQ(model_.selected()->id, "a");
}

// Routes

TEST_F(WindowModelTest, FollowsTheTraysRoutes) {
  poll();
  (void)model_.takeFocus();
  model_.open("join");
  EXPECT_EQ(model_.page(), Page::join);
  EXPECT_EQ(model_.takeFocus(), Focus::inviteKey);
  model_.open("servers");
  EXPECT_EQ(model_.page(), Page::server);
  EXPECT_EQ(model_.takeFocus(), Focus::servers);
  model_.open("servers/b/rename");
  EXPECT_EQ(model_.selected()->id, "b");
  EXPECT_EQ(model_.takeFocus(), Focus::name);
  model_.open("servers/a/remove");
  EXPECT_EQ(model_.selected()->id, "a");
  EXPECT_EQ(model_.takeFocus(), Focus::removal);
}

TEST_F(WindowModelTest, FollowsARouteThatArrivedBeforeTheServers) {
  model_.open("servers/b/rename");
  EXPECT_EQ(model_.takeFocus(), std::nullopt);
  poll();
  EXPECT_EQ(model_.selected()->id, "b");
  EXPECT_EQ(model_.takeFocus(), Focus::name);
}

TEST_F(WindowModelTest, ReportsAMissingServerOfARoute) {
  poll();
  model_.open("servers/gone/remove");
  EXPECT_EQ(model_.notice(), "");
  poll();
  EXPECT_EQ(model_.notice(), "That server is gone.");
  model_.select("a");
  EXPECT_EQ(model_.notice(), "");
}

// Joining

TEST_F(WindowModelTest, ShowsAJoinedServerOnceItIsConnected) {
  answers_.at("GET /servers") = Answer{200, R"({"servers": []})"};
  poll();
  model_.join("inv_v2_x");
  EXPECT_EQ(pending_.front().request.body, R"({"key":"inv_v2_x"})");
  answerNext();
  answers_.at("GET /servers") = Answer{200, R"({"servers": [{"id": "c", "name": "Zephyl 1",
      "accent": "", "enabled": true, "usesTailnet": true, "running": true, "enrolled": false}]})"};
  answerAll();
  EXPECT_EQ(model_.page(), Page::join);
  EXPECT_EQ(model_.joining().progress(), "Connecting to the server…");
  answers_.at("GET /servers") = Answer{200, R"({"servers": [{"id": "c", "name": "Zephyl 1",
      "accent": "", "enabled": true, "usesTailnet": true, "running": true, "enrolled": true}]})"};
  poll();
  EXPECT_EQ(model_.page(), Page::server);
  EXPECT_EQ(model_.selected()->id, "c");
  EXPECT_FALSE(model_.joining().isUnderWay());
}

TEST_F(WindowModelTest, AcceptsAKeyUnlessTheProgramsAreMissing) {
  EXPECT_TRUE(model_.canJoin());
  answers_.at("GET /status") =
      Answer{200, R"({"available": false, "enrolled": false, "running": false})"};
  poll();
  EXPECT_FALSE(model_.canJoin());
}

TEST_F(WindowModelTest, StaysOnThePageWhenAKeyIsRefused) {
  poll();
  model_.showJoinPage();
  answers_.emplace("POST /invite", Answer{400, R"({"error": "not a key"})"});
  model_.join("x");
  model_.join("a second press of the button");
  EXPECT_EQ(pending_.size(), 1U);
  answerAll();
  EXPECT_EQ(model_.page(), Page::join);
  EXPECT_EQ(model_.joining().error(), "not a key");
}

// The agent

TEST_F(WindowModelTest, ReturnsTheDiagnosticsAsText) {
  std::optional<Result<std::string>> diagnostics;
  model_.copyDiagnostics([&](const Result<std::string>& text) { diagnostics = text; });
  answerAll();
  ASSERT_TRUE(diagnostics && *diagnostics);
  EXPECT_THAT(**diagnostics, testing::HasSubstr("\"reachable\": true"));
}

}  // namespace
}  // namespace zephyl::sandbox::desktop
