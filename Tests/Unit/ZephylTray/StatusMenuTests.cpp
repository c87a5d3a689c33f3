#include "ZephylTray/Menu/StatusMenu.hpp"

#include <algorithm>
#include <set>

#include <gtest/gtest.h>

#include "Support/MenuText.hpp"
#include "System/Data/JSON.hpp"

namespace zephyl {
namespace {

using test::lineOf;
using test::textOf;

/// A state of the tray that owns the agent's view. Tests modify it.
struct ShownState {
  AgentSnapshot agent;
  bool tailnetProgramsFound = false;
  ServerList servers{{}};
  std::map<std::string, TailnetView, std::less<>> tailnets;
  UpdateView updates;
};

Menu menuOf(const ShownState& state) {
  return statusMenu(
      {state.agent, state.tailnetProgramsFound, state.servers, state.tailnets, state.updates});
}

ShownState answering() {
  return {.agent = {.reachable = true, .status = AgentStatus{}, .activity = Activity{}}};
}

std::optional<MenuEntry> entry(const Menu& menu, const std::string& key) {
  const auto found = std::find_if(menu.begin(), menu.end(),
                                  [&](const MenuEntry& each) { return each.key == key; });
  return found == menu.end() ? std::nullopt : std::optional(*found);
}

/// Returns the row as text, empty if the menu has no row with this key.
std::string line(const ShownState& state, const std::string& key) {
  const auto found = entry(menuOf(state), key);
  return found ? lineOf(*found) : "";
}

void expectUniqueKeys(const Menu& menu) {
  std::set<std::string> keys;
  for (const auto& each : menu) {
    EXPECT_TRUE(keys.insert(each.key).second) << each.key;
    expectUniqueKeys(each.submenu);
  }
}

/// Returns a state in which the menu has all of its rows.
ShownState eventful() {
  auto state = answering();
  state.agent.status->connections = {{{"agent-1", AgentState::enrolled, {}, {}}}};
  state.agent.roots = {{"/a", "a", {{"id-1"}}}, {"/b", "b", std::nullopt}};
  state.agent.activity->model = ModelStatus{ModelPhase::downloading, 420, 1000, {}};
  state.agent.activity->pendingApprovals.resize(3);
  state.agent.activity->escapeGrants = {{"/etc/hosts", "/a", "path", 5, "Ana"},
                                        {"make deploy", "/a", "shell", 6, {}}};
  state.tailnetProgramsFound = true;
  state.servers = ServerList({{.id = "id-1",
                               .label = "Lab",
                               .address = "http://lab",
                               .agentId = "agent-1",
                               .enabled = true},
                              {.id = "id-2", .label = "Home", .address = "http://home"}});
  state.tailnets["id-1"] = {true, {.boundAddress = "127.100.0.1:80"}, true};
  state.updates = {true, "1.4", false, "1.5", true};
  return state;
}

TEST(StatusMenu, BeforeAnythingIsKnown) {
  EXPECT_EQ(textOf(menuOf({})), R"(
open: Open Zephyl ^o -> OpenDesktopWindow
separator/servers: ----
separator/quit: ----
quit: Quit Zephyl ^q -> Quit
)");
}

TEST(StatusMenu, WithEverythingAtOnce) {
  EXPECT_EQ(textOf(menuOf(eventful())), R"(
approvals: ⚠️ 3 requests need your approval… -> ReviewPendingApprovals
separator/open: ----
open: Open Zephyl ^o -> OpenDesktopWindow
separator/servers: ----
server/id-1: (green) Lab
  state: Connected [off]
  browser: Open in Browser  (127.100.0.1:80) -> OpenServerInBrowser id-1
  folders: 2 folders shared [off]
  separator/actions: ----
  rename: Rename… -> RenameServer id-1
  remove: Remove Server… -> RemoveServer id-1
  logs: Tailnet Logs… -> ShowTailnetLogs
  restart: Restart Tailnet -> RestartTailnet
server/id-2: (grey) Home
  state: Disabled [off]
  folders: 1 folder shared [off]
  separator/actions: ----
  connect: Connect -> ConnectServer id-2
  rename: Rename… -> RenameServer id-2
  remove: Remove Server… -> RemoveServer id-2
  restart: Restart Tailnet -> RestartTailnet
model: (orange) Downloading embeddings model… 42% [off]
separator/exceptions: ----
exceptions: ⚠️ Permanent exceptions (2)
  note: These bypass the folder boundary with no prompt. [off]
  separator/grants: ----
  grant/path//etc/hosts: /etc/hosts
    kind: Path exception [off]
    grantedBy: Granted for: Ana [off]
    separator/revoke: ----
    revoke: Revoke -> RevokeEscapeGrant {"path":"/etc/hosts","root":"/a","kind":"path","grantedAt":5E0,"grantedBy":"Ana"}
  grant/shell/make deploy: make deploy
    kind: Command exception [off]
    separator/revoke: ----
    revoke: Revoke -> RevokeEscapeGrant {"path":"make deploy","root":"/a","kind":"shell","grantedAt":6E0}
separator/updates: ----
version: Version 1.4 [off]
update: Update to 1.5 available… -> CheckForUpdates
check: Check for Updates… -> CheckForUpdates
separator/quit: ----
quit: Quit Zephyl ^q -> Quit
)");
}

TEST(StatusMenu, WithoutAnAgent) {
  auto state = eventful();
  state.agent = {};
  const auto menu = menuOf(state);
  EXPECT_EQ(menu.front().key, "open");
  for (const auto* key :
       {"approvals", "separator/open", "model", "separator/exceptions", "exceptions"}) {
    EXPECT_FALSE(entry(menu, key)) << key;
  }
  for (const auto* server : {"server/id-1", "server/id-2"}) {
    EXPECT_EQ(lineOf(*entry(entry(menu, server)->submenu, "folders")),
              "folders: Agent not running [off]");
  }
  EXPECT_TRUE(entry(entry(menu, "server/id-1")->submenu, "enrolment"));
}

TEST(StatusMenu, ReportsOfAnUnreachableAgentAreNotShown) {
  auto state = eventful();
  state.agent.reachable = false;
  const auto withoutAnswer = textOf(menuOf(state));
  state.agent.activity.reset();
  EXPECT_EQ(withoutAnswer, textOf(menuOf(state)));
}

TEST(StatusMenu, RequestsAreCounted) {
  auto state = answering();
  EXPECT_EQ(line(state, "approvals"), "");
  EXPECT_EQ(line(state, "separator/open"), "");
  state.agent.activity->pendingApprovals.resize(1);
  EXPECT_EQ(line(state, "approvals"),
            "approvals: ⚠️ 1 request needs your approval… -> ReviewPendingApprovals");
  EXPECT_EQ(line(state, "separator/open"), "separator/open: ----");
  state.agent.activity->pendingApprovals.resize(2);
  EXPECT_EQ(line(state, "approvals"),
            "approvals: ⚠️ 2 requests need your approval… -> ReviewPendingApprovals");
}

TEST(StatusMenu, WithoutServersItOffersToJoinOne) {
  auto state = answering();
  state.tailnetProgramsFound = true;
  EXPECT_EQ(textOf(menuOf(state)), R"(
open: Open Zephyl ^o -> OpenDesktopWindow
separator/servers: ----
join: Join the Zephyl tailnet… -> RedeemInvite
separator/quit: ----
quit: Quit Zephyl ^q -> Quit
)");
}

TEST(StatusMenu, ServersReplaceTheJoinRow) {
  const auto menu = menuOf(eventful());
  EXPECT_FALSE(entry(menu, "join"));
  EXPECT_TRUE(entry(menu, "server/id-1"));
}

TEST(StatusMenu, WithoutTheTailnetProgramsItShowsNoServersAndNoJoinRow) {
  auto state = eventful();
  state.tailnetProgramsFound = false;
  for (const auto& each : menuOf(state)) EXPECT_FALSE(each.key.starts_with("server/"));
  state.servers = ServerList({});
  EXPECT_EQ(line(state, "join"), "");
}

TEST(StatusMenu, AServerIsMatchedWithItsOwnTailnetAndConnection) {
  auto state = eventful();
  state.servers = ServerList({{.id = "id-2", .label = "Other", .enabled = true},
                              {.id = "id-1", .label = "Lab", .enabled = true}});
  const auto isEnrolled = [&state] {
    return !entry(entry(menuOf(state), "server/id-1")->submenu, "enrolment");
  };
  EXPECT_EQ(line(state, "server/id-2"), "server/id-2: (red) Other");
  EXPECT_EQ(line(state, "server/id-1"), "server/id-1: (green) Lab");
  EXPECT_FALSE(isEnrolled()) << "this entry has no name for the agent";
  state.agent.status->connections->push_back({"id-1", AgentState::enrolled, {}, {}});
  EXPECT_TRUE(isEnrolled());
  state.agent.status.reset();
  EXPECT_FALSE(isEnrolled());
}

/// Tests every phase and every form of the progress.
TEST(StatusMenu, TheModelHasARowUntilItIsReady) {
  auto state = answering();
  EXPECT_EQ(line(state, "model"), "");
  const auto modelLine = [&state](ModelPhase phase, std::int64_t soFar = 0,
                                  std::int64_t total = 0) {
    state.agent.activity->model = ModelStatus{phase, soFar, total, "why"};
    return line(state, "model");
  };
  EXPECT_EQ(modelLine(ModelPhase::absent), "");
  EXPECT_EQ(modelLine(ModelPhase::checking), "model: (orange) Preparing embeddings model… [off]");
  EXPECT_EQ(modelLine(ModelPhase::ready), "");
  EXPECT_EQ(modelLine(ModelPhase::failed),
            "model: (red) Model download failed — lexical only [off]");
  const std::string downloading = "model: (orange) Downloading embeddings model… ";
  EXPECT_EQ(modelLine(ModelPhase::downloading, 999, 1000), downloading + "99% [off]");
  EXPECT_EQ(modelLine(ModelPhase::downloading, 0, 1), downloading + "0% [off]");
  EXPECT_EQ(modelLine(ModelPhase::downloading, 1000, 1000), downloading + "100% [off]");
  EXPECT_EQ(modelLine(ModelPhase::downloading, 12'345'678, 0), downloading + "12.3 MB [off]");
  EXPECT_EQ(modelLine(ModelPhase::downloading, 12'345'678, -1), downloading + "12.3 MB [off]");
}

/// Every kind but a command is treated as a path.
TEST(StatusMenu, AnExceptionNamesACommandOrAPath) {
  auto state = answering();
  const auto kindLine = [&state](const std::string& kind) {
    state.agent.activity->escapeGrants = {{.path = "x", .kind = kind}};
    const auto exceptions = entry(menuOf(state), "exceptions");
    return lineOf(exceptions->submenu.back().submenu.front());
  };
  EXPECT_EQ(kindLine("shell"), "kind: Command exception [off]");
  for (const auto* other : {"path", "", "Shell", "shell ", "network"}) {
    EXPECT_EQ(kindLine(other), "kind: Path exception [off]");
  }
}

TEST(StatusMenu, RevokingAnExceptionCarriesItsWholeRecord) {
  auto state = answering();
  const std::vector<EscapeGrant> grants{{"/ü \"q\"\n", "/r", "path", 1731.125, "Ana"},
                                        {"", "", "", 0, std::nullopt}};
  state.agent.activity->escapeGrants = grants;
  const auto exceptions = entry(menuOf(state), "exceptions")->submenu;
  for (std::size_t index = 0; index < grants.size(); ++index) {
    const auto& action = exceptions[2 + index].submenu.back().action;
    EXPECT_EQ(action, MenuAction(TrayAction(menuActions::RevokeEscapeGrant{grants[index]})));
  }
}

TEST(StatusMenu, ExceptionsKeepTheAgentsOrder) {
  auto state = answering();
  state.agent.activity->escapeGrants = {{.path = "/z"}, {.path = "/a"}, {.path = "/m"}};
  const auto menu = menuOf(state);
  EXPECT_EQ(lineOf(*entry(menu, "exceptions")), "exceptions: ⚠️ Permanent exceptions (3)");
  const auto exceptions = entry(menu, "exceptions")->submenu;
  ASSERT_EQ(exceptions.size(), 5U);
  EXPECT_EQ(exceptions[2].title, "/z");
  EXPECT_EQ(exceptions[3].title, "/a");
  EXPECT_EQ(exceptions[4].title, "/m");
}

TEST(StatusMenu, ListsFiftyExceptionsAtMost) {
  auto state = answering();
  auto& grants = state.agent.activity->escapeGrants;
  for (int i = 0; i < 50; ++i) grants.push_back({.path = "/" + std::to_string(i)});
  const auto exceptions = [&state] { return entry(menuOf(state), "exceptions")->submenu; };
  EXPECT_EQ(exceptions().size(), 52U);
  EXPECT_EQ(exceptions().back().title, "/49");
  for (int i = 0; i < 5000; ++i) grants.push_back({.path = "/more/" + std::to_string(i)});
  EXPECT_EQ(exceptions().size(), 53U);
  EXPECT_EQ(exceptions()[51].title, "/49");
  EXPECT_EQ(exceptions().back().title, "… and 5000 more");
  EXPECT_FALSE(exceptions().back().enabled);
  EXPECT_EQ(entry(menuOf(state), "exceptions")->title, "⚠️ Permanent exceptions (5050)");
}

TEST(StatusMenu, AnExceptionHasABoundedTitleWithoutBlanks) {
  auto state = answering();
  const std::string name(100'000, 'x');
  state.agent.activity->escapeGrants = {{.path = "ls\u2800      " + name, .grantedBy = name}};
  const auto exception = entry(menuOf(state), "exceptions")->submenu.back();
  EXPECT_TRUE(exception.title.starts_with("ls\\u2800␠×6xxx")) << exception.title;
  EXPECT_TRUE(exception.title.ends_with(" bytes left out]")) << exception.title;
  EXPECT_LT(exception.title.size(), 400U);
  EXPECT_LT(exception.submenu[1].title.size(), 400U);
}

/// Tests every state of the updater.
TEST(StatusMenu, UpdatesAreOfferedIfTheProgramUpdatesItself) {
  auto state = answering();
  const auto updates = [&state](const UpdateView& view) {
    state.updates = view;
    Menu menu = menuOf(state);
    return textOf(Menu(menu.begin() + 2, menu.end() - 2));
  };
  EXPECT_EQ(updates({false, "1.4", true, "1.5", true}), "\n");
  EXPECT_EQ(updates({true, "1.4", false, std::nullopt, true}), R"(
separator/updates: ----
version: Version 1.4 [off]
check: Check for Updates… -> CheckForUpdates
)");
  EXPECT_EQ(updates({true, "unknown", false, "2.0", false}), R"(
separator/updates: ----
version: Version unknown [off]
update: Update to 2.0 available… -> CheckForUpdates
check: Check for Updates… [off] -> CheckForUpdates
)");
  for (const auto& pending : {std::optional<std::string>(), std::optional<std::string>("2.0")}) {
    EXPECT_EQ(updates({true, "1.4", true, pending, true}), R"(
separator/updates: ----
version: Version 1.4 [off]
postponed: Update ready — restarts when the agent is idle [off]
check: Check for Updates… -> CheckForUpdates
)");
  }
}

TEST(StatusMenu, ControlCharactersFromOutsideAreMadeVisible) {
  auto state = answering();
  state.agent.activity->escapeGrants = {{.path = "/a\nb", .grantedBy = "A\tna"}};
  state.updates = {true, "1\x7f", false, "2\x1b[0m", true};
  const auto menu = menuOf(state);
  const auto grant = entry(menu, "exceptions")->submenu.back();
  EXPECT_EQ(grant.title, "/a␊b");
  EXPECT_EQ(grant.submenu[1].title, "Granted for: A␉na");
  EXPECT_EQ(entry(menu, "version")->title, "Version 1␡");
  EXPECT_EQ(entry(menu, "update")->title, "Update to 2␛[0m available…");
}

TEST(StatusMenu, KeysAreUniqueAmongSiblings) {
  auto state = eventful();
  expectUniqueKeys(menuOf(state));
  state.agent.activity->escapeGrants = {
      {.path = "/a", .kind = "path"}, {.path = "/a", .kind = "shell"},
      {.path = "/a", .kind = "path"}, {.path = "/a", .root = "/r", .kind = "path"},
      {.path = "z", .kind = "x/y"},   {.path = "y/z", .kind = "x"},
      {.path = "z", .kind = "x%2Fy"}, {.path = "#2", .kind = ""}};
  state.servers = ServerList({{.id = "same"}, {.id = "same"}, {.id = ""}, {.id = "#2"}});
  expectUniqueKeys(menuOf(state));
}

TEST(StatusMenu, ARowKeepsItsKeyWhateverTheOtherRows) {
  auto state = answering();
  state.agent.activity->escapeGrants = {{.path = "/a", .kind = "path", .grantedAt = 1},
                                        {.path = "/b", .kind = "path"},
                                        {.path = "/a", .kind = "path", .grantedAt = 2}};
  const auto keys = [&state] {
    std::vector<std::string> found;
    const auto exceptions = entry(menuOf(state), "exceptions")->submenu;
    for (const auto& each : exceptions) {
      if (each.key.starts_with("grant")) found.push_back(each.key);
    }
    return found;
  };
  EXPECT_EQ(keys(),
            (std::vector<std::string>{"grant/path//a", "grant/path//b", "grant#2/path//a"}));
  state.agent.activity->escapeGrants.erase(state.agent.activity->escapeGrants.begin());
  EXPECT_EQ(keys(), (std::vector<std::string>{"grant/path//b", "grant/path//a"}));
}

TEST(StatusMenu, EqualStatesMakeEqualMenus) {
  EXPECT_EQ(menuOf(eventful()), menuOf(eventful()));
}

TEST(StatusIcon, IsBusyWhileTheAgentAnswersAndWorks) {
  EXPECT_EQ(statusIcon({}), StatusIcon::idle);
  EXPECT_EQ(statusIcon({.reachable = true}), StatusIcon::idle);
  EXPECT_EQ(statusIcon({.reachable = true, .activity = Activity{.busy = false}}), StatusIcon::idle);
  EXPECT_EQ(statusIcon({.reachable = true, .activity = Activity{.busy = true}}), StatusIcon::busy);
  EXPECT_EQ(statusIcon({.reachable = false, .activity = Activity{.busy = true}}), StatusIcon::idle);
}

TEST(StatusTitle, CountsTheFoldersWhileTheAgentAnswers) {
  EXPECT_EQ(statusTitle({.reachable = true, .roots = std::vector<SharedRoot>(3)}), " 3");
  EXPECT_EQ(statusTitle({.reachable = true}), " 0");
  EXPECT_EQ(statusTitle({.reachable = false, .roots = std::vector<SharedRoot>(3)}), "");
}

}  // namespace
}  // namespace zephyl
