#include "ZephylTray/Commands/Server/CommandReports.hpp"

#include <algorithm>

#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"
#include "ZephylTray/Agent/ServerConnections.hpp"
#include "ZephylTray/Agent/ServerNames.hpp"

namespace zephyl {

namespace {

std::optional<std::string> nonEmpty(const std::optional<std::string>& text) {
  return text.value_or("").empty() ? std::nullopt : text;
}

bool isConnected(const AgentConnection* connection) {
  return connection != nullptr &&
         (connection->state == AgentState::connected || connection->state == AgentState::enrolled);
}

/// A server without a private network is reached by the agent alone.
std::string stateOf(const ServerEntry& server, const std::optional<TailnetView>& tailnet,
                    const AgentConnection* connection) {
  if (!server.enabled) return "disabled";
  if (server.isJoined() ? tailnet && tailnet->usable() : isConnected(connection)) {
    return "connected";
  }
  return tailnet && tailnet->running ? "starting" : "disconnected";
}

std::optional<std::string> problemOf(const std::optional<TailnetView>& tailnet,
                                     const AgentConnection* connection) {
  if (tailnet) {
    const auto& state = tailnet->state;
    if (auto error = nonEmpty(state.lastEnrolError)) return error;
    if (auto reason = nonEmpty(state.stalledReason)) return reason;
    if (const auto target = nonEmpty(state.unresolvedTarget)) {
      return formatText("{} was not found on its network", *target);
    }
  }
  return connection != nullptr ? nonEmpty(connection->lastError) : std::nullopt;
}

const IndexProgress* progressOf(const AgentSnapshot& agent, const std::string& root) {
  if (!agent.activity) return nullptr;
  const auto& indexing = agent.activity->indexing;
  const auto found = std::ranges::find(indexing, root, &IndexProgress::root);
  return found == indexing.end() ? nullptr : &*found;
}

void shorten(std::string& field) {
  field = shortened(field, CommandReports::maxFieldBytes);
}

PendingApproval bounded(PendingApproval approval) {
  constexpr std::size_t maxReasons = 50;
  for (auto* field : {&approval.kind, &approval.tool, &approval.target, &approval.root}) {
    shorten(*field);
  }
  if (approval.userName) shorten(*approval.userName);
  if (approval.chatTitle) shorten(*approval.chatTitle);
  if (approval.reasons.size() > maxReasons) {
    const auto more = approval.reasons.size() - maxReasons;
    approval.reasons.resize(maxReasons);
    approval.reasons.push_back({.code = "more", .detail = formatText("… and {} more", more)});
  }
  for (auto& reason : approval.reasons) reason.detail = shortened(reason.detail, 1024);
  return approval;
}

/// Returns the ids of the servers that the folder names, and unchanged the names of no server.
std::vector<std::string> serverIds(const SharedRoot& root, const ServerList& servers,
                                   const ServerNames& names) {
  auto ids = root.servers.value_or(std::vector<std::string>());
  for (auto& id : ids) {
    if (const auto index = names.find(id)) id = servers[*index].id;
  }
  return ids;
}

}  // namespace

CommandStatus CommandReports::status(TrayHost host) const {
  TailnetSummary tailnets;
  for (const auto& server : port_.servers()) {
    const auto tailnet = port_.tailnet(server.id);
    if (!tailnet) continue;
    ++tailnets.tailnets;
    if (tailnet->usable()) ++tailnets.usable;
  }
  return statusReport({.tray = port_.tray(),
                       .host = host,
                       .known = port_.agentKnown(),
                       .agent = port_.agent(),
                       .tailnets = tailnets,
                       .servers = servers()});
}

std::vector<CommandServerRecord> CommandReports::servers() const {
  const auto& agent = port_.agent();
  const auto connections = agent.status ? ServerConnections(*agent.status) : ServerConnections();
  std::vector<CommandServerRecord> records;
  for (const auto& server : port_.servers()) {
    const auto tailnet = port_.tailnet(server.id);
    const auto* const connection = connections.of(server);
    CommandServerRecord record{.id = server.id,
                               .name = server.displayName(),
                               .state = stateOf(server, tailnet, connection),
                               .enabled = server.enabled,
                               .usesTailnet = server.isJoined(),
                               .problem = problemOf(tailnet, connection)};
    if (tailnet) {
      record.address = port_.webAddressOf(tailnet->state.boundAddress);
      record.relay = nonEmpty(tailnet->state.activeRelay);
      record.joinFailed = nonEmpty(tailnet->state.lastEnrolError).has_value();
    }
    records.push_back(std::move(record));
  }
  return records;
}

std::vector<CommandFolder> CommandReports::folders() const {
  const auto& agent = port_.agent();
  std::vector<CommandFolder> folders;
  const auto servers = port_.servers();
  const ServerNames names(servers);
  for (const auto& root : agent.roots) {
    CommandFolder folder{
        .path = root.root, .name = root.name, .servers = serverIds(root, servers, names)};
    if (const auto* const progress = progressOf(agent, root.root)) {
      folder.indexed = progress->filesEmbedded;
      folder.files = progress->lexicalFiles;
      folder.ready = progress->ready && !progress->embedding;
    }
    folders.push_back(std::move(folder));
  }
  return folders;
}

CommandPending CommandReports::requests() const {
  CommandPending pending;
  const auto& activity = port_.agent().activity;
  if (!activity) return pending;
  const auto& all = activity->pendingApprovals;
  const auto count = std::min(all.size(), maxRequests);
  for (std::size_t i = 0; i < count; ++i) pending.requests.push_back(bounded(all[i]));
  pending.omitted = static_cast<std::int64_t>(all.size() - count);
  return pending;
}

Result<ServerEntry> CommandReports::findServer(std::string_view name) const {
  const auto all = port_.servers();
  std::vector<ServerEntry> named;
  std::vector<ServerEntry> begun;
  for (const auto& server : all) {
    if (server.id == name) return server;
    if (lowerCased(server.displayName()) == lowerCased(name)) named.push_back(server);
    if (!name.empty() && server.id.starts_with(name)) begun.push_back(server);
  }
  const auto& found = named.empty() ? begun : named;
  if (found.size() == 1) return found.front();
  const auto shown = visible(shortened(name, 200));
  if (found.empty()) {
    return Error{"No server is called “", shown, "”. `zephyl-tray servers` lists them."};
  }
  return Error{"Several servers match “", shown, "”. Use an id; `zephyl-tray servers` lists them."};
}

}  // namespace zephyl
