#include "ZephylTray/Menu/ServerMenu.hpp"

#include <algorithm>

#include <gtest/gtest.h>

#include "Support/MenuText.hpp"

namespace zephyl {
namespace {

ServerEntry lab(bool enabled) {
  return {.id = "id-1",
          .label = "Lab",
          .address = "https://lab.example:8443",
          .agentId = "agent-1",
          .enabled = enabled};
}

std::string menuOf(const ServerView& view) {
  return test::textOf({serverMenu("server/id-1", view)});
}

/// The lines of the submenu that begin with one of `keys`.
std::string rows(const ServerView& view, const std::vector<std::string>& keys) {
  std::string found;
  for (const auto& entry : serverMenu("server/id-1", view).submenu) {
    if (std::find(keys.begin(), keys.end(), entry.key) != keys.end()) {
      found += (found.empty() ? "" : "\n") + test::lineOf(entry);
    }
  }
  return found;
}

const AgentConnection enrolled{.serverId = "id-1", .state = AgentState::enrolled};

TEST(ServerMenu, AConnectedServer) {
  const auto server = lab(true);
  const TailnetView tailnet{
      true, {.boundAddress = "127.100.0.1:80", .activeRelay = "relay-7"}, true};
  EXPECT_EQ(menuOf({server, &tailnet, &enrolled, 2}), R"(
server/id-1: (green) Lab
  state: Connected [off]
  browser: Open in Browser  (127.100.0.1:80) -> OpenServerInBrowser id-1
  relay: via relay-7 [off]
  folders: 2 folders shared [off]
  separator/actions: ----
  rename: Rename… -> RenameServer id-1
  remove: Remove Server… -> RemoveServer id-1
  logs: Tailnet Logs… -> ShowTailnetLogs
  restart: Restart Tailnet -> RestartTailnet
)");
}

TEST(ServerMenu, AServerWithoutAProcess) {
  const auto server = lab(true);
  EXPECT_EQ(menuOf({server}), R"(
server/id-1: (red) Lab
  state: Disconnected [off]
  folders: Agent not running [off]
  separator/actions: ----
  rename: Rename… -> RenameServer id-1
  remove: Remove Server… -> RemoveServer id-1
  restart: Restart Tailnet -> RestartTailnet
)");
}

TEST(ServerMenu, ADisabledServer) {
  const auto server = lab(false);
  EXPECT_EQ(menuOf({server, nullptr, nullptr, 1}), R"(
server/id-1: (grey) Lab
  state: Disabled [off]
  folders: 1 folder shared [off]
  separator/actions: ----
  connect: Connect -> ConnectServer id-1
  rename: Rename… -> RenameServer id-1
  remove: Remove Server… -> RemoveServer id-1
  restart: Restart Tailnet -> RestartTailnet
)");
}

TEST(ServerMenu, AServerWithEveryRow) {
  auto server = lab(true);
  server.address.reset();
  const TailnetView tailnet{true,
                            {.boundAddress = "127.100.0.1:8080",
                             .activeRelay = "relay-7",
                             .stalledReason = "not shown while it runs",
                             .unresolvedTarget = "http://lab"},
                            true};
  EXPECT_EQ(menuOf({server, &tailnet, nullptr, 0}), R"(
server/id-1: (green) Lab
  state: Connected [off]
  enrolment: Folders here aren't shared with it [off]
  address: Zephyl not found on this network [off]
  browser: Open in Browser  (127.100.0.1:8080) -> OpenServerInBrowser id-1
  relay: via relay-7 [off]
  folders: 0 folders shared [off]
  separator/actions: ----
  rename: Rename… -> RenameServer id-1
  remove: Remove Server… -> RemoveServer id-1
  logs: Tailnet Logs… -> ShowTailnetLogs
  restart: Restart Tailnet -> RestartTailnet
)");
}

/// Tests every state of a tailnet, for an enabled and for a disabled server.
TEST(ServerMenu, DotAndStateFollowTheTailnet) {
  const TailnetState bound{.boundAddress = "127.100.0.1:80"};
  const TailnetState stalled{.stalledReason = "giving up for 5 minutes"};
  const TailnetState both{.boundAddress = "127.100.0.1:80", .stalledReason = "giving up"};
  struct Row {
    std::optional<TailnetView> tailnet;
    DotColor dot;
    std::string state;
  };
  const std::vector<Row> table{
      {std::nullopt, DotColor::red, "Disconnected"},
      {TailnetView{.running = false}, DotColor::red, "Disconnected"},
      {TailnetView{false, bound}, DotColor::red, "Disconnected"},
      {TailnetView{false, stalled}, DotColor::red, "giving up for 5 minutes"},
      {TailnetView{false, both}, DotColor::red, "giving up"},
      {TailnetView{.running = true}, DotColor::orange, "Starting…"},
      {TailnetView{true, stalled}, DotColor::orange, "Starting…"},
      {TailnetView{true, bound}, DotColor::green, "Connected"},
      {TailnetView{true, both}, DotColor::green, "Connected"},
  };
  for (const auto& row : table) {
    SCOPED_TRACE(row.state);
    const auto* const tailnet = row.tailnet ? &*row.tailnet : nullptr;
    const auto on = lab(true);
    EXPECT_EQ(serverMenu("k", {on, tailnet}).dot, row.dot);
    EXPECT_EQ(rows({on, tailnet}, {"state", "connect"}), "state: " + row.state + " [off]");
    const auto off = lab(false);
    EXPECT_EQ(serverMenu("k", {off, tailnet}).dot, DotColor::grey);
    EXPECT_EQ(rows({off, tailnet}, {"state", "connect"}),
              "state: Disabled [off]\nconnect: Connect -> ConnectServer id-1");
  }
}

TEST(ServerMenu, ShowsThatTheAgentIsNotEnrolledWithAUsableServer) {
  const std::string line = "enrolment: Folders here aren't shared with it [off]";
  const auto server = lab(true);
  const TailnetView usable{true, {.boundAddress = "127.100.0.1:80"}};
  EXPECT_EQ(rows({server, &usable, nullptr}, {"enrolment"}), line);
  for (const auto state :
       {AgentState::connecting, AgentState::connected, AgentState::disconnected}) {
    const AgentConnection connection{.serverId = "id-1", .state = state};
    EXPECT_EQ(rows({server, &usable, &connection}, {"enrolment"}), line);
  }
  EXPECT_EQ(rows({server, &usable, &enrolled}, {"enrolment"}), "");
}

TEST(ServerMenu, OmitsTheEnrolmentForAnUnusableServer) {
  const TailnetView usable{true, {.boundAddress = "127.100.0.1:80"}};
  const TailnetView starting{.running = true};
  const TailnetView stopped{false, {.boundAddress = "127.100.0.1:80"}};
  const auto on = lab(true);
  const auto off = lab(false);
  EXPECT_EQ(rows({off, &usable}, {"enrolment"}), "");
  EXPECT_EQ(rows({on, &starting}, {"enrolment"}), "");
  EXPECT_EQ(rows({on, &stopped}, {"enrolment"}), "");
  EXPECT_EQ(rows({on, nullptr}, {"enrolment"}), "");
}

TEST(ServerMenu, AServerWithoutAnAddressIsBeingDiscovered) {
  auto server = lab(true);
  const TailnetView resolving{.running = true};
  const TailnetView unresolved{.state = {.unresolvedTarget = "http://lab"}};
  EXPECT_EQ(rows({server, &unresolved}, {"address"}), "");
  for (const auto& address : {std::optional<std::string>(), std::optional<std::string>("lab")}) {
    server.address = address;
    EXPECT_EQ(rows({server}, {"address"}), "address: Looking for Zephyl… [off]");
    EXPECT_EQ(rows({server, &resolving}, {"address"}), "address: Looking for Zephyl… [off]");
    EXPECT_EQ(rows({server, &unresolved}, {"address"}),
              "address: Zephyl not found on this network [off]");
  }
}

TEST(ServerMenu, ABoundAddressCanBeOpenedWhetherOrNotTheTailnetRuns) {
  const std::string browser =
      "browser: Open in Browser  (127.0.0.1:8080) -> OpenServerInBrowser id-1";
  const TailnetView stopped{false, {.boundAddress = "127.0.0.1:8080"}};
  const auto on = lab(true);
  const auto off = lab(false);
  EXPECT_EQ(rows({on, &stopped}, {"browser", "relay"}), browser);
  EXPECT_EQ(rows({off, &stopped}, {"browser", "relay"}), browser);
}

TEST(ServerMenu, ARelayIsShownOnlyBelowABoundAddress) {
  const auto server = lab(true);
  const TailnetView relayAlone{true, {.activeRelay = "relay-7"}};
  EXPECT_EQ(rows({server, &relayAlone}, {"browser", "relay"}), "");
}

TEST(ServerMenu, CountsTheFoldersOnlyWhileTheAgentAnswers) {
  const auto server = lab(true);
  const auto folders = [&](std::optional<std::size_t> count) {
    return rows({.server = server, .sharedFolders = count}, {"folders"});
  };
  EXPECT_EQ(folders(std::nullopt), "folders: Agent not running [off]");
  EXPECT_EQ(folders(0), "folders: 0 folders shared [off]");
  EXPECT_EQ(folders(1), "folders: 1 folder shared [off]");
  EXPECT_EQ(folders(1000), "folders: 1000 folders shared [off]");
}

TEST(ServerMenu, OffersLogsOnlyWhenThereAreSome) {
  const auto server = lab(false);
  const TailnetView silent{.hasLog = false};
  const TailnetView talkative{.hasLog = true};
  EXPECT_EQ(rows({server, &silent}, {"logs"}), "");
  EXPECT_EQ(rows({server, &talkative}, {"logs"}), "logs: Tailnet Logs… -> ShowTailnetLogs");
}

TEST(ServerMenu, ControlCharactersFromOutsideAreMadeVisible) {
  auto server = lab(true);
  server.label = "L\nab";
  const TailnetView usable{
      true, {.boundAddress = "127.0.0.1:80\t", .activeRelay = "re\x1blay"}, false};
  EXPECT_EQ(serverMenu("k", {server, &usable}).title, "L␊ab");
  EXPECT_EQ(rows({server, &usable}, {"browser", "relay"}),
            "browser: Open in Browser  (127.0.0.1:80␉) -> OpenServerInBrowser id-1\n"
            "relay: via re␛lay [off]");
  const TailnetView stalled{.state = {.stalledReason = "no\rway"}};
  EXPECT_EQ(rows({server, &stalled}, {"state"}), "state: no␍way [off]");
}

TEST(ServerMenu, MarkupAndUnderscoresAreShownAsTheyAre) {
  auto server = lab(true);
  server.label = "a_b & <c>";
  EXPECT_EQ(serverMenu("k", {server}).title, "a_b & <c>");
}

TEST(ServerMenu, AnUnnamedServerHasItsNumber) {
  const ServerEntry server{.id = "id-2", .ordinal = 2};
  EXPECT_EQ(serverMenu("k", {server}).title, "Zephyl 2");
}

}  // namespace
}  // namespace zephyl
