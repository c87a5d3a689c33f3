#include "ZephylTray/Agent/AgentClient.hpp"

#include <functional>
#include <optional>

#include <gtest/gtest.h>

#include "Support/Eventually.hpp"
#include "Support/FakeAgent.hpp"
#include "System/Concurrency/MainLoop.hpp"
#include "System/Concurrency/Reactor.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

class AgentClientTest : public ::testing::Test {
 protected:
  /// Calls an operation and returns its result.
  template <typename T, typename... Arguments, typename... Given>
  Result<T> call(void (AgentClient::*operation)(Arguments...) const, const Given&... given) {
    std::optional<Result<T>> received;
    (client_.*operation)(given..., [&](Result<T> result) {
      EXPECT_TRUE(mainLoop_.isCurrent());
      received = std::move(result);
    });
    runUntil([&] { return received.has_value(); });
    return received.value();
  }

  bool runUntil(const std::function<bool()>& condition) {
    return test::eventually([&] {
      mainLoop_.runPending();
      return condition();
    });
  }

  json::Value lastBody() { return *json::parse(agent_.requests().back().body); }

  test::FakeAgent agent_;
  MainLoop mainLoop_;
  Reactor reactor_;
  AgentClient client_{mainLoop_, agent_.base(), HTTPSession(reactor_, {.requestTimeout = 4s})};
};

TEST_F(AgentClientTest, APollReadsStatusRootsAndActivityInThisOrder) {
  agent_.answerHealthily(R"([{"root":"/a","name":"a"}])");
  const auto found = call<AgentPoll>(&AgentClient::poll);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->status.state, AgentState::connected);
  EXPECT_EQ(found->roots.front().root, "/a");
  ASSERT_TRUE(found->activity);
  EXPECT_FALSE(found->activity->busy);
  std::vector<std::string> paths;
  for (const auto& request : agent_.requests()) paths.push_back(request.path);
  EXPECT_EQ(paths, (std::vector<std::string>{"/api/status", "/api/roots", "/api/activity"}));
}

TEST_F(AgentClientTest, APollFailsWithTheFirstOfStatusAndRootsThatFails) {
  agent_.answerHealthily();
  agent_.answer("GET /api/roots", 404, R"({"error":"no such thing"})");
  EXPECT_EQ(call<AgentPoll>(&AgentClient::poll).error().message, "roots: missing");
  agent_.answer("GET /api/status", 404, R"({"error":"no such thing"})");
  EXPECT_EQ(call<AgentPoll>(&AgentClient::poll).error().message, "state: missing");
  EXPECT_EQ(agent_.requestCount("GET /api/roots"), 1U);
  EXPECT_EQ(agent_.requestCount("GET /api/activity"), 0U);
}

TEST_F(AgentClientTest, APollWhoseActivityFailsSucceedsWithoutOne) {
  agent_.answerHealthily();
  agent_.answer("GET /api/activity", 404, "{}");
  const auto found = call<AgentPoll>(&AgentClient::poll);
  ASSERT_TRUE(found);
  EXPECT_FALSE(found->activity);
}

TEST_F(AgentClientTest, APollWakesTheMainThreadOnce) {
  agent_.answerHealthily();
  bool isDone = false;
  client_.poll([&](const Result<AgentPoll>&) { isDone = true; });
  ASSERT_TRUE(mainLoop_.waitForTask(30s));
  mainLoop_.runPending();
  EXPECT_TRUE(isDone);
}

TEST_F(AgentClientTest, AReadIgnoresTheStatusCode) {
  agent_.answer("GET /api/roots", 500, R"({"roots":[]})");
  EXPECT_TRUE(call<std::vector<SharedRoot>>(&AgentClient::getRoots));
}

TEST_F(AgentClientTest, AReadWithAnUnexpectedAnswerFailsToDecode) {
  agent_.answer("GET /api/roots", 404, R"({"error":"no such thing"})");
  EXPECT_EQ(call<std::vector<SharedRoot>>(&AgentClient::getRoots).error().message,
            "roots: missing");
}

TEST_F(AgentClientTest, AWriteFailsWithTheAgentsMessage) {
  agent_.answer("POST /api/roots", 500, R"({"error":"disk full"})");
  const auto result = call<std::vector<SharedRoot>>(&AgentClient::addRoot, "/a", std::nullopt,
                                                    std::vector<std::string>{});
  EXPECT_EQ(result.error().message, "disk full");
}

TEST_F(AgentClientTest, AWriteThatFailsWithoutAMessageNamesTheStatus) {
  const std::vector<std::string> none;
  agent_.answer("POST /api/roots", 500, "");
  EXPECT_EQ(call<std::vector<SharedRoot>>(&AgentClient::addRoot, "/a", std::nullopt, none)
                .error()
                .message,
            "request failed (500)");
  agent_.answer("POST /api/roots", 409, R"({"reason":"x"})");
  EXPECT_EQ(call<std::vector<SharedRoot>>(&AgentClient::addRoot, "/a", std::nullopt, none)
                .error()
                .message,
            "request failed (409)");
}

TEST_F(AgentClientTest, ALongErrorMessageIsTruncated) {
  agent_.answer("POST /api/roots", 409, R"({"error":")" + std::string(100'000, 'x') + R"("})");
  const auto message = call<std::vector<SharedRoot>>(&AgentClient::addRoot, "/a", std::nullopt,
                                                     std::vector<std::string>{})
                           .error()
                           .message;
  EXPECT_TRUE(message.ends_with("x… [98000 bytes left out]")) << message.substr(1990);
}

TEST_F(AgentClientTest, AddingARootOmitsAnEmptyNameAndServerList) {
  agent_.answer("POST /api/roots", 200, R"({"roots":[]})");
  call<std::vector<SharedRoot>>(&AgentClient::addRoot, "/a", std::string(),
                                std::vector<std::string>{});
  EXPECT_EQ(lastBody(), (json::Object{{"root", "/a"}}));
  EXPECT_EQ(agent_.requests().back().contentType, "application/json");
  call<std::vector<SharedRoot>>(&AgentClient::addRoot, "/a", std::string("A"),
                                std::vector<std::string>{"s"});
  EXPECT_EQ(lastBody(), (json::Object{{"root", "/a"}, {"name", "A"}, {"servers", {"s"}}}));
}

TEST_F(AgentClientTest, SettingServersAlwaysSendsTheList) {
  agent_.answer("PATCH /api/roots", 200, R"({"roots":[]})");
  EXPECT_TRUE(call<std::vector<SharedRoot>>(&AgentClient::setRootServers, "/a",
                                            std::vector<std::string>{}));
  EXPECT_EQ(lastBody(), (json::Object{{"root", "/a"}, {"servers", json::Array{}}}));
}

TEST_F(AgentClientTest, RemovingARootNamesIt) {
  agent_.answer("DELETE /api/roots", 200, R"({"roots":[{"root":"/b","name":"b"}]})");
  EXPECT_EQ(call<std::vector<SharedRoot>>(&AgentClient::removeRoot, "/a")->front().name, "b");
  EXPECT_EQ(lastBody(), (json::Object{{"root", "/a"}}));
}

TEST_F(AgentClientTest, ADecisionContainsTheConfirmationOnlyIfThereIsOne) {
  agent_.answer("POST /api/approvals", 200, "whatever");
  EXPECT_TRUE(call<void>(&AgentClient::decideApproval, "7", "deny", std::nullopt));
  EXPECT_EQ(lastBody(), (json::Object{{"id", "7"}, {"decision", "deny"}}));
  EXPECT_TRUE(call<void>(&AgentClient::decideApproval, "7", "always", std::string("ALWAYS ALLOW")));
  EXPECT_EQ(lastBody(),
            (json::Object{{"id", "7"}, {"decision", "always"}, {"confirm", "ALWAYS ALLOW"}}));
}

TEST_F(AgentClientTest, RevokingAGrantReturnsTheRemainingOnes) {
  agent_.answer("DELETE /api/escape-grants", 200, R"({"escapeGrants":[]})");
  EXPECT_TRUE(
      call<std::vector<EscapeGrant>>(&AgentClient::revokeEscapeGrant, "shell", "ls")->empty());
  EXPECT_EQ(lastBody(), (json::Object{{"kind", "shell"}, {"path", "ls"}}));
}

TEST_F(AgentClientTest, ARefusedConnectionIsAnErrorWithAReason) {
  const AgentClient nowhere(mainLoop_, "http://127.0.0.1:1", HTTPSession(reactor_, {}));
  std::string message;
  nowhere.poll([&](const Result<AgentPoll>& found) {
    message = found ? "no error" : found.error().message;
  });
  EXPECT_TRUE(runUntil([&] { return !message.empty(); }));
  EXPECT_NE(message.find("refused"), std::string::npos) << message;
}

}  // namespace
}  // namespace zephyl
