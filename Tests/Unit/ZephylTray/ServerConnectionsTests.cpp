#include "ZephylTray/Agent/ServerConnections.hpp"

#include <algorithm>

#include <gtest/gtest.h>

namespace zephyl {
namespace {

AgentStatus statusWith(std::vector<AgentConnection> connections) {
  return {.connections = std::move(connections)};
}

std::optional<std::string> machineOf(const AgentStatus& status, const ServerEntry& server) {
  const auto connection = connectionOf(status, server);
  return connection ? connection->machineId : std::nullopt;
}

TEST(ServerConnections, AServerHasTheFirstConnectionUnderItsId) {
  const auto status = statusWith(
      {{.serverId = "b", .machineId = "1"}, {"a", {}, "2", {}}, {"a", AgentState::enrolled, "3"}});
  EXPECT_EQ(machineOf(status, {.id = "a"}), "2");
  EXPECT_EQ(machineOf(status, {.id = "b"}), "1");
  EXPECT_FALSE(connectionOf(status, {.id = "c"}));
}

TEST(ServerConnections, AServerIsAlsoKnownByItsNameForTheAgent) {
  const auto status = statusWith({{"agent-1", {}, "1", {}}, {"agent-1", {}, "2", {}}});
  EXPECT_EQ(machineOf(status, {.id = "a", .agentId = "agent-1"}), "1");
  EXPECT_FALSE(connectionOf(status, {.id = "a", .agentId = "agent-2"}));
}

TEST(ServerConnections, TheIdIsPreferredToTheAgentsName) {
  const auto status = statusWith({{"agent-1", {}, "1", {}}, {"a", {}, "2", {}}});
  EXPECT_EQ(machineOf(status, {.id = "a", .agentId = "agent-1"}), "2");
}

TEST(ServerConnections, AnEmptyNameForTheAgentMatchesNothing) {
  EXPECT_FALSE(connectionOf(statusWith({{.serverId = ""}}), {.id = "a", .agentId = ""}));
}

TEST(ServerConnections, AStatusMayListNoConnections) {
  EXPECT_FALSE(connectionOf({}, {.id = "a", .agentId = "a"}));
  EXPECT_EQ(ServerConnections().of({.id = "a"}), nullptr);
}

TEST(ServerConnections, AFolderWithoutServersIsSharedWithAll) {
  EXPECT_TRUE(isSharedWithAll({.servers = std::nullopt}));
  EXPECT_TRUE(isSharedWithAll({.servers = std::vector<std::string>{}}));
  EXPECT_FALSE(isSharedWithAll({.servers = {{"b", "A", ""}}}));
}

TEST(ServerConnections, FoldersAreCountedForEachServer) {
  const std::vector<SharedRoot> roots{{.servers = {{"a", "b"}}},
                                      {.servers = {{"b", "b", "gone"}}},
                                      {.servers = {{"gone"}}},
                                      {.servers = std::nullopt},
                                      {.servers = std::vector<std::string>{}}};
  const ServerList servers({{.id = "b"}, {.id = "a"}, {.id = "c"}, {.id = "b"}});
  EXPECT_EQ(sharedFolderCounts(roots, servers), (std::vector<std::size_t>{4, 3, 2, 4}));
  EXPECT_EQ(sharedFolderCounts({}, servers), (std::vector<std::size_t>{0, 0, 0, 0}));
  EXPECT_TRUE(sharedFolderCounts(roots, ServerList({})).empty());
}

TEST(ServerConnections, AFolderMayNameAServerByTheIdThatTheAgentReceived) {
  const ServerList servers(
      {{.id = "a", .agentId = "one"}, {.id = "b", .agentId = "a"}, {.id = "c"}});
  const std::vector<SharedRoot> roots{
      {.servers = {{"one"}}}, {.servers = {{"a", "one"}}}, {.servers = {{"", "One"}}}};
  EXPECT_EQ(sharedFolderCounts(roots, servers), (std::vector<std::size_t>{2, 0, 0}));
}

/// Each folder names the servers whose bit is set in its number, some of them twice.
TEST(ServerConnections, TheCountsEqualACountOverEveryFolder) {
  const ServerList servers({{.id = "0"}, {.id = "1"}, {.id = "2"}, {.id = "3"}, {.id = "4"}});
  std::vector<SharedRoot> roots;
  for (std::size_t number = 0; number < 64; ++number) {
    auto& names = roots.emplace_back().servers.emplace();
    for (std::size_t bit = 0; bit < 6; ++bit) {
      if ((number >> bit) % 2 != 0) names.insert(names.end(), 1 + bit % 2, std::to_string(bit));
    }
  }
  const auto counts = sharedFolderCounts(roots, servers);
  for (std::size_t index = 0; index < servers.size(); ++index) {
    const auto one = std::count_if(roots.begin(), roots.end(), [&](const auto& root) {
      return isSharedWithAll(root) ||
             std::ranges::find(*root.servers, servers[index].id) != root.servers->end();
    });
    EXPECT_EQ(counts[index], static_cast<std::size_t>(one));
  }
}

}  // namespace
}  // namespace zephyl
