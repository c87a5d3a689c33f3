#include "ZephylTray/Commands/Server/CommandReports.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

class CommandReportsTest : public ::testing::Test {
 protected:
  CommandReportsTest() {
    entries_ = {
        {.id = "5a7d0b7e", .label = "Patient Hill", .tailnetFingerprint = "f", .enabled = true},
        {.id = "5a000000", .label = "Office", .tailnetFingerprint = "g", .enabled = true}};
    agent_.reachable = true;
    agent_.activity.emplace();
  }

  [[nodiscard]] CommandReports reports() const {
    return CommandReports(
        {.tray = [] { return TrayFacts{}; },
         .agent = [this]() -> const AgentSnapshot& { return agent_; },
         .agentKnown = [] { return true; },
         .servers = [this] { return ServerList(entries_); },
         .tailnet =
             [this](const std::string& id) { return id == "5a7d0b7e" ? tailnet_ : std::nullopt; },
         .webAddressOf = [](const auto& bound) { return bound; }});
  }

  /// Makes the agent report this connection.
  void connect(AgentConnection connection) {
    agent_.status.emplace();
    agent_.status->connections.emplace().push_back(std::move(connection));
  }

  ServerList::Entries entries_;
  AgentSnapshot agent_;
  std::optional<TailnetView> tailnet_;
};

TEST_F(CommandReportsTest, StateOfAServerIsThatOfItsTailnet) {
  EXPECT_EQ(reports().servers()[0].state, "disconnected");
  tailnet_ = TailnetView{.running = true};
  EXPECT_EQ(reports().servers()[0].state, "starting");
  tailnet_->state.boundAddress = "127.100.0.1:80";
  tailnet_->state.activeRelay = "relay-1";
  const auto connected = reports().servers()[0];
  EXPECT_EQ(connected.state, "connected");
  EXPECT_EQ(connected.address, "127.100.0.1:80");
  EXPECT_EQ(connected.relay, "relay-1");
  entries_[0].enabled = false;
  EXPECT_EQ(reports().servers()[0].state, "disabled");
  EXPECT_EQ(reports().status(TrayHost::present).connected, 0);
}

TEST_F(CommandReportsTest, AServerWithoutATailnetIsConnectedThroughTheAgent) {
  entries_ = {{.id = "x", .enabled = true}};
  EXPECT_EQ(reports().servers()[0].state, "disconnected");
  connect({.serverId = "x", .state = AgentState::enrolled});
  EXPECT_EQ(reports().servers()[0].state, "connected");
}

TEST_F(CommandReportsTest, TheProblemIsTheMostImportantOne) {
  connect({.serverId = "5a7d0b7e", .lastError = "refused"});
  EXPECT_EQ(reports().servers()[0].problem, "refused");
  tailnet_ = TailnetView{};
  tailnet_->state.unresolvedTarget = "srv";
  EXPECT_EQ(reports().servers()[0].problem, "srv was not found on its network");
  tailnet_->state.stalledReason = "keeps failing";
  EXPECT_EQ(reports().servers()[0].problem, "keeps failing");
  tailnet_->state.lastEnrolError = "the key was used";
  EXPECT_EQ(reports().servers()[0].problem, "the key was used");
  EXPECT_TRUE(reports().servers()[0].joinFailed);
}

TEST_F(CommandReportsTest, FoldersContainTheProgressOfTheirIndex) {
  agent_.roots = {{.root = "/a", .name = "a", .servers = std::vector<std::string>{"x"}},
                  {.root = "/b"}};
  agent_.activity->indexing = {
      {.root = "/a", .ready = true, .embedding = true, .filesEmbedded = 4, .lexicalFiles = 9}};
  const auto folders = reports().folders();
  EXPECT_EQ(
      folders[0],
      (CommandFolder{
          .path = "/a", .name = "a", .servers = {"x"}, .indexed = 4, .files = 9, .ready = false}));
  EXPECT_EQ(folders[1], (CommandFolder{.path = "/b"}));
}

TEST_F(CommandReportsTest, FoldersNameServersByTheirIds) {
  entries_[0].agentId = "agent-1";
  agent_.roots = {{.root = "/a", .servers = std::vector<std::string>{"agent-1", "gone"}}};
  EXPECT_EQ(reports().folders()[0].servers, (std::vector<std::string>{entries_[0].id, "gone"}));
}

TEST_F(CommandReportsTest, RequestsAreBounded) {
  auto& pending = agent_.activity->pendingApprovals;
  pending.resize(60, {.id = "r", .target = std::string(100'000, 'x')});
  pending[0].reasons.resize(80, {.detail = "d"});
  const auto reported = reports().requests();
  EXPECT_EQ(reported.requests.size(), 50U);
  EXPECT_EQ(reported.omitted, 10);
  EXPECT_LT(reported.requests[0].target.size(), 17'000U);
  EXPECT_EQ(reported.requests[0].reasons.size(), 51U);
  EXPECT_EQ(reported.requests[0].reasons.back().detail, "… and 30 more");
}

TEST_F(CommandReportsTest, AServerIsFoundByIdNameOrPrefix) {
  EXPECT_EQ(reports().findServer("5a7d0b7e")->label, "Patient Hill");
  EXPECT_EQ(reports().findServer("patient hill")->id, "5a7d0b7e");
  EXPECT_EQ(reports().findServer("5a7")->id, "5a7d0b7e");
  EXPECT_EQ(reports().findServer("nobody").error().message,
            "No server is called “nobody”. `zephyl-tray servers` lists them.");
  EXPECT_NE(reports().findServer("5a").error().message.find("Several"), std::string::npos);
  EXPECT_FALSE(reports().findServer(""));
}

TEST_F(CommandReportsTest, ANameIsPreferredToAPrefixOfAnId) {
  entries_[1].label = "5a7";
  EXPECT_EQ(reports().findServer("5a7")->id, "5a000000");
  entries_[0].label = "5a7";
  EXPECT_FALSE(reports().findServer("5a7"));
}

}  // namespace
}  // namespace zephyl
