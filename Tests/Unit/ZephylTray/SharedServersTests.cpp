#include "ZephylTray/Actions/SharedServers.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

using Ids = std::vector<std::string>;

const ServerList& servers() {
  static const ServerList list({{.id = "a"}, {.id = "b"}, {.id = "c"}});
  return list;
}

Ids scoped(std::optional<Ids> current, const std::string& id, bool shared) {
  return serversSharing({.root = "/r", .name = "r", .servers = std::move(current)}, servers(), id,
                        shared);
}

TEST(SharedServers, AddsAServerOnce) {
  EXPECT_EQ(scoped(Ids{"a"}, "b", true), (Ids{"a", "b"}));
  EXPECT_EQ(scoped(Ids{"b", "a"}, "b", true), (Ids{"b", "a"}));
}

TEST(SharedServers, RemovesAServer) {
  EXPECT_EQ(scoped(Ids{"a", "b"}, "a", false), Ids{"b"});
  EXPECT_EQ(scoped(Ids{"a"}, "b", false), Ids{"a"});
  EXPECT_EQ(scoped(Ids{"a"}, "a", false), Ids{});
}

TEST(SharedServers, DropsRemovedServers) {
  EXPECT_EQ(scoped(Ids{"gone", "a"}, "b", true), (Ids{"a", "b"}));
  EXPECT_EQ(scoped(Ids{"gone"}, "a", false), Ids{});
}

TEST(SharedServers, ReturnsIdsForTheNamesThatTheAgentReceived) {
  const ServerList named({{.id = "a", .agentId = "one"}, {.id = "b", .agentId = "two"}});
  const auto scopedNames = [&](Ids current, const std::string& id, bool shared) {
    return serversSharing({.root = "/r", .name = "r", .servers = std::move(current)}, named, id,
                          shared);
  };
  EXPECT_EQ(scopedNames({"one"}, "b", true), (Ids{"a", "b"}));
  EXPECT_EQ(scopedNames({"one", "b"}, "b", false), Ids{"a"});
  EXPECT_EQ(scopedNames({"one", "b"}, "a", false), Ids{"b"});
  EXPECT_EQ(scopedNames({"one", "a"}, "a", true), Ids{"a"});
  EXPECT_EQ(scopedNames({"one", "a"}, "a", false), Ids{});
}

TEST(SharedServers, AcceptsAnUnknownServer) {
  EXPECT_EQ(scoped(Ids{"a"}, "unknown", true), (Ids{"a", "unknown"}));
  EXPECT_EQ(scoped(Ids{"a"}, "unknown", false), Ids{"a"});
}

TEST(SharedServers, CountsAFolderWithoutAListAsSharedWithAll) {
  EXPECT_EQ(scoped(std::nullopt, "b", false), (Ids{"a", "c"}));
  EXPECT_EQ(scoped(Ids{}, "b", false), (Ids{"a", "c"}));
  EXPECT_EQ(scoped(std::nullopt, "b", true), (Ids{"a", "b", "c"}));
}

}  // namespace
}  // namespace zephyl
