#include "ZephylTray/Commands/Server/StatusReport.hpp"

#include <algorithm>
#include <utility>

#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Files.hpp"

namespace zephyl {

namespace {

using Notices = std::vector<CommandNotice>;

/// Returns where to install a missing part.
std::string installAdvice(const TrayFacts& tray, const std::string& what,
                          const std::string& place) {
  if (!tray.resourceDirectory) {
    return formatText("Set ZEPHYL_REPO_ROOT to a source tree with a build of {}.", what);
  }
  return formatText(
      "Install {} as {}, or set ZEPHYL_REPO_ROOT to a source tree with a build of it.", what,
      joinPath(*tray.resourceDirectory, place));
}

void addRequests(const StatusFacts& facts, Notices& attention) {
  if (!facts.agent.activity) return;
  const auto count = facts.agent.activity->pendingApprovals.size();
  if (count == 0) return;
  attention.push_back({.code = "requestsWaiting",
                       .message = approvalsNeeded(count) + ".",
                       .advice =
                           "Read `zephyl-tray requests`, then decide with `zephyl-tray answer "
                           "ID deny|once|always`."});
}

void addAgent(const StatusFacts& facts, Notices& attention) {
  const auto& tray = facts.tray;
  if (facts.agent.reachable) return;
  if (!tray.agentInstalled) {
    attention.push_back({.code = "agentNotInstalled",
                         .message = "No agent is installed, so no folder is shared.",
                         .advice = installAdvice(tray, "zephyl-agent", "agent/zephyl-agent") +
                                   " Then run `zephyl-tray restart-agent`."});
  } else if (facts.known) {
    attention.push_back(
        {.code = "agentNotReachable",
         .message = tray.agentRunning
                        ? formatText("The agent is running, but does not answer on port {}.",
                                     tray.agentPort)
                        : "The agent is not running.",
         .advice = "`zephyl-tray logs` shows why; `zephyl-tray restart-agent` starts it again."});
  }
}

void addModel(const StatusFacts& facts, Notices& attention) {
  const auto& activity = facts.agent.activity;
  if (!activity || !activity->model || activity->model->phase != ModelPhase::failed) return;
  const auto reason = activity->model->error.value_or("");
  attention.push_back(
      {.code = "modelFailed",
       .message = "The embeddings model could not be downloaded, so search finds words only" +
                  (reason.empty() ? "." : ": " + visible(reason)),
       .advice = "Check the network, then run `zephyl-tray restart-agent`."});
}

void addServer(const CommandServerRecord& server, Notices& attention) {
  if (server.state != "disconnected") return;
  const auto name = visible(server.name);
  if (server.joinFailed) {
    attention.push_back({.code = "joinFailed",
                         .message = formatText("{} could not be joined: {}", name,
                                               visible(server.problem.value_or("?"))),
                         .advice = "Ask for a new invite key and run `zephyl-tray join`."});
    return;
  }
  const auto quoted = visible(shellQuoted(server.name));
  attention.push_back(
      {.code = "serverNotConnected",
       .message = server.problem
                      ? formatText("{} is not connected: {}", name, visible(*server.problem))
                      : name + " is not connected.",
       .advice = formatText("`zephyl-tray logs {}` shows why; `zephyl-tray restart-tailnet {}` "
                            "tries again.",
                            quoted, quoted)});
}

void addServers(const StatusFacts& facts, Notices& attention) {
  const bool anyJoined = std::ranges::any_of(
      facts.servers, [](const auto& server) { return server.enabled && server.usesTailnet; });
  if (anyJoined && !facts.tray.tailnetProgramsInstalled) {
    attention.push_back(
        {.code = "tailnetProgramsMissing",
         .message = "tailscaled or zephyl-tailnet is not installed, so no server can be reached.",
         .advice = installAdvice(facts.tray, "each", "agent/NAME")});
    return;
  }
  for (const auto& server : facts.servers) addServer(server, attention);
}

void addControl(const StatusFacts& facts, Notices& attention) {
  if (facts.tray.controlListens) return;
  attention.push_back(
      {.code = "controlNotListening",
       .message = "The control API is not listening, so Zephyl's window cannot manage servers.",
       .advice = "`zephyl-tray doctor` shows whether another program uses its port. Restart the "
                 "tray when the port is free."});
}

void addHost(const StatusFacts& facts, Notices& attention, Notices& notes) {
  if (facts.host == TrayHost::absent) {
    attention.push_back(
        {.code = "noTrayHost",
         .message = "No panel of this desktop shows tray icons, so Zephyl's icon is not visible.",
         .advice = "Add a tray (status notifier) to your panel; GNOME needs the extension "
                   "AppIndicator. Until then, start zephyl-tray again to open the window."});
  } else if (facts.host == TrayHost::noBus) {
    notes.push_back({.code = "noSessionBus",
                     .message = "No session bus answers, so neither an icon nor prompts are shown.",
                     .advice = "Decide requests with `zephyl-tray answer`."});
  }
}

void addNotes(const StatusFacts& facts, Notices& notes) {
  if (facts.servers.empty()) {
    notes.push_back({.code = "noServer",
                     .message = "No server has been joined.",
                     .advice = "Run `zephyl-tray join` and paste an invite key."});
  }
  if (!facts.tray.windowInstalled) {
    notes.push_back({.code = "windowNotInstalled",
                     .message = "Zephyl's window is not installed.",
                     .advice = "The menu, a browser and these commands work without it."});
  }
}

CommandAgent agentOf(const StatusFacts& facts) {
  const auto& agent = facts.agent;
  return {.installed = facts.tray.agentInstalled,
          .running = facts.tray.agentRunning,
          .reachable = agent.reachable,
          .busy = agent.activity && agent.activity->busy,
          .port = facts.tray.agentPort,
          .state = agent.status ? std::optional(agent.status->state) : std::nullopt};
}

std::optional<bool> isShown(TrayHost host) {
  if (host == TrayHost::present) return true;
  if (host == TrayHost::absent || host == TrayHost::noBus) return false;
  return std::nullopt;
}

std::int64_t connectedCount(const std::vector<CommandServerRecord>& servers) {
  return std::ranges::count(servers, "connected", &CommandServerRecord::state);
}

}  // namespace

CommandStatus statusReport(const StatusFacts& facts) {
  const auto& activity = facts.agent.activity;
  CommandStatus status{
      .version = facts.tray.version,
      .pid = facts.tray.pid,
      .mode = facts.tray.mode,
      .summary = facts.known ? describe(facts.agent, facts.tailnets) : "starting",
      .agent = agentOf(facts),
      .folders = static_cast<std::int64_t>(facts.agent.roots.size()),
      .requests = activity ? static_cast<std::int64_t>(activity->pendingApprovals.size()) : 0,
      .servers = static_cast<std::int64_t>(facts.servers.size()),
      .connected = connectedCount(facts.servers),
      .trayHost = isShown(facts.host)};
  addRequests(facts, status.attention);
  addAgent(facts, status.attention);
  addModel(facts, status.attention);
  addServers(facts, status.attention);
  addControl(facts, status.attention);
  addHost(facts, status.attention, status.notes);
  addNotes(facts, status.notes);
  return status;
}

}  // namespace zephyl
