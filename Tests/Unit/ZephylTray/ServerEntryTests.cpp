#include "ZephylTray/Registry/ServerEntry.hpp"

#include <gtest/gtest.h>

#include "System/Data/JSON.hpp"

namespace zephyl {
namespace {

ServerEntry withAddress(std::optional<std::string> address) {
  return {.address = std::move(address)};
}

std::optional<std::string> serverURL(const std::string& address) {
  return withAddress(address).serverURL();
}

TEST(ServerEntry, HasAnAddressURLOnlyWithASchemeAndAHost) {
  EXPECT_EQ(withAddress(" https://srv:443\t").addressURL()->authority(), "srv:443");
  for (const auto* bad : {"", "  ", "srv", "srv:8080", "//srv", "http://", "http:srv", "http:///x",
                          "http://s rv", "http://srv:x"}) {
    EXPECT_EQ(withAddress(bad).addressURL(), std::nullopt) << bad;
    EXPECT_EQ(serverURL(bad), std::nullopt) << bad;
  }
  EXPECT_EQ(withAddress(std::nullopt).addressURL(), std::nullopt);
}

TEST(ServerEntry, ReachesTheAgentsEndpointOverAWebSocket) {
  EXPECT_EQ(serverURL("https://srv:8443"), "wss://srv:8443/agent");
  EXPECT_EQ(serverURL("http://srv"), "ws://srv/agent");
  EXPECT_EQ(serverURL("  https://srv:443 "), "wss://srv:443/agent");
  EXPECT_EQ(serverURL("ftp://srv"), "ws://srv/agent");
  EXPECT_EQ(serverURL("HTTPS://srv"), "ws://srv/agent");
  EXPECT_EQ(serverURL("https://srv:"), "wss://srv/agent");
  EXPECT_EQ(serverURL("https://user@srv/path?query#fragment"), "wss://srv/agent");
  EXPECT_EQ(serverURL("http://[::1]:5173"), "ws://[::1]:5173/agent");
}

TEST(ServerEntry, IsNamedByItsLabelThenByItsOwnNameThenByItsNumber) {
  ServerEntry entry{.label = " Mine\t", .serverName = "Lab", .ordinal = 3};
  EXPECT_EQ(entry.displayName(), "Mine");
  entry.label = "   ";
  EXPECT_EQ(entry.displayName(), "Lab");
  entry.serverName = " ";
  EXPECT_EQ(entry.displayName(), "Zephyl 3");
  entry.serverName.reset();
  EXPECT_EQ(entry.displayName(), "Zephyl 3");
  entry.ordinal.reset();
  EXPECT_EQ(entry.displayName(), "Zephyl 1");
}

TEST(ServerEntry, HasAResolvedNameOnceAnythingButItsNumberIsKnown) {
  EXPECT_FALSE((ServerEntry{.label = " ", .serverName = "", .ordinal = 3}).nameResolved());
  EXPECT_TRUE((ServerEntry{.label = "Mine"}).nameResolved());
  EXPECT_TRUE((ServerEntry{.serverName = "Lab"}).nameResolved());
  EXPECT_TRUE(withAddress("srv").nameResolved());
  EXPECT_FALSE(withAddress(" \t").nameResolved());
}

TEST(ServerEntry, PrefersTheUsersColorToTheServers) {
  EXPECT_EQ((ServerEntry{.accent = " red ", .serverAccent = "blue"}).displayAccent(), "red");
  EXPECT_EQ((ServerEntry{.accent = " ", .serverAccent = " blue"}).displayAccent(), "blue");
  EXPECT_EQ(ServerEntry{}.displayAccent(), "");
}

TEST(ServerEntry, EncodesWhatItDecodes) {
  const ServerEntry full{
      .id = "i",
      .label = "l",
      .serverName = "n",
      .accent = "a",
      .serverAccent = "s",
      .ordinal = 2,
      .address = "http://srv",
      .tailnetFingerprint = "f",
      .agentId = "g",
      .ports = {.socks = 1, .shim = 2, .tunnelHost = "127.100.0.3", .tunnelFallback = 4},
      .enabled = true};
  EXPECT_EQ(*json::decode<ServerEntry>(json::encode(full)), full);
  EXPECT_EQ(json::encode(full).as_object().size(), 11U);
  EXPECT_EQ(json::compact(json::encode(ServerEntry{})),
            R"({"id":"","label":"","agentId":"","ports":{"socks":0,"shim":0,"tunnelHost":""},)"
            R"("enabled":false})");
}

TEST(ServerEntry, DecodesPortsUnchanged) {
  const auto ports =
      json::decodeText<ServerPorts>(R"({"socks": -1, "shim": 70000, "tunnelHost": ""})");
  ASSERT_TRUE(ports);
  EXPECT_EQ(*ports, (ServerPorts{.socks = -1, .shim = 70000}));
}

TEST(ServerEntry, NeedsEveryKeyThatIsNotOptionalInItsType) {
  const json::Value whole = json::encode(ServerEntry{.ports = {.tunnelFallback = 1}});
  for (const auto* key : {"id", "label", "agentId", "ports", "enabled"}) {
    auto object = whole.as_object();
    object.erase(key);
    EXPECT_EQ(json::decode<ServerEntry>(object).error().message, std::string(key) + ": missing");
    object[key] = nullptr;
    EXPECT_FALSE(json::decode<ServerEntry>(object)) << key;
    object[key] = json::Array();
    EXPECT_FALSE(json::decode<ServerEntry>(object)) << key;
  }
}

TEST(ServerEntry, TheNextOrdinalFollowsTheLargest) {
  EXPECT_EQ(nextOrdinal({}), 1);
  EXPECT_EQ(nextOrdinal({ServerEntry{}}), 1);
  EXPECT_EQ(nextOrdinal({{.ordinal = 1}, {.ordinal = 4}, {}}), 5);
  EXPECT_EQ(nextOrdinal({{.ordinal = -3}}), -2);
  EXPECT_EQ(nextOrdinal({{.ordinal = INT64_MAX}}), INT64_MAX);
}

TEST(ServerEntry, IsJoinedOnceItHasAFingerprint) {
  EXPECT_FALSE(ServerEntry{}.isJoined());
  EXPECT_FALSE(ServerEntry{.tailnetFingerprint = ""}.isJoined());
  EXPECT_TRUE(ServerEntry{.tailnetFingerprint = "a"}.isJoined());
}

}  // namespace
}  // namespace zephyl
