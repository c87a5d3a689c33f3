#include "ZephylTray/Control/ControlAPI.hpp"

#include "System/Concurrency/MainLoop.hpp"
#include "System/Concurrency/Weakly.hpp"
#include "ZephylTray/Agent/ServerConnections.hpp"
#include "ZephylTray/Control/ControlRecords.hpp"
#include "ZephylTray/Control/ControlServer.hpp"

namespace zephyl {

namespace {

std::optional<std::string> nonEmpty(const std::optional<std::string>& text) {
  return text.value_or("").empty() ? std::nullopt : text;
}

void addEntry(ControlServerRecord& record, const ServerEntry& entry) {
  record.id = entry.id;
  record.name = entry.displayName();
  record.label = entry.label;
  record.nameResolved = entry.nameResolved();
  record.accent = entry.displayAccent();
  record.localAccent = entry.accent.value_or("");
  record.enabled = entry.enabled;
  record.usesTailnet = entry.isJoined();
  record.serverName = nonEmpty(entry.serverName);
  record.serverAccent = nonEmpty(entry.serverAccent);
}

void addTailnet(ControlServerRecord& record, const TailnetView& tailnet) {
  const auto& state = tailnet.state;
  record.running = tailnet.running;
  record.boundAddress = nonEmpty(state.boundAddress);
  record.relay = nonEmpty(state.activeRelay);
  record.addressUnresolved = nonEmpty(state.unresolvedTarget);
  record.enrolError = nonEmpty(state.lastEnrolError);
  record.tailnetStalled = nonEmpty(state.stalledReason);
}

void addConnection(ControlServerRecord& record, const AgentConnection& connection) {
  // The agent reports a connection as enrolled when the server knows its folders.
  record.enrolled =
      connection.state == AgentState::connected || connection.state == AgentState::enrolled;
  record.agentError = nonEmpty(connection.lastError);
}

}  // namespace

json::Object ControlAPI::status() const {
  ControlStatus status{
      .available = port_.tailnetProgramsInstalled(),
      .enrolled = port_.isEnrolled(),
      .running = port_.anyTailnetRunning(),
  };
  if (const auto primary = port_.primaryTailnet()) {
    status.url = port_.webAddressOf(primary->state.boundAddress);
    status.relay = nonEmpty(primary->state.activeRelay);
  }
  return json::encode(status).as_object();
}

std::vector<json::Object> ControlAPI::servers() const {
  const auto& agent = port_.agent();
  const auto connections = agent.status ? ServerConnections(*agent.status) : ServerConnections();
  std::vector<json::Object> servers;
  for (const auto& entry : port_.servers()) {
    ControlServerRecord record;
    addEntry(record, entry);
    if (const auto tailnet = port_.tailnet(entry.id)) addTailnet(record, *tailnet);
    if (const auto* connection = connections.of(entry)) addConnection(record, *connection);
    record.webUrl = port_.webAddressOf(record.boundAddress);
    servers.push_back(json::encode(record).as_object());
  }
  return servers;
}

json::Object ControlAPI::diagnostics() const {
  const Diagnostics diagnostics{
      .tray = port_.tray(),
      .agent = port_.agentProcess(),
      .view = port_.agent(),
      .servers = port_.servers(),
      .tailnets = port_.tailnetReports(),
  };
  return diagnostics.toJSON();
}

void ControlAPI::install(ControlServer& server, MainLoop& mainLoop, const Port& port) {
  const auto api = std::make_shared<const ControlAPI>(port);
  server.handlers.statusProvider = [api] { return api->status(); };
  server.handlers.serversProvider = [api] { return api->servers(); };
  server.handlers.diagnosticsProvider = [api] { return api->diagnostics(); };
  server.handlers.onRestartAgent = port.restartAgent;
  const auto& actions = port.serverActions;
  server.handlers.onInvite = [actions](const auto& key, const auto& done) {
    actions->complete(actions->redeem(key), done);
  };
  server.handlers.onSetLabel = [actions](const auto& id, const auto& label) {
    return actions->setServerLabel(id, label);
  };
  server.handlers.onSetAccent = [actions](const auto& id, const auto& accent) {
    return actions->setServerAccent(id, accent);
  };
  server.handlers.onSetEnabled = [actions](const auto& id, bool enabled, const auto& done) {
    actions->complete(actions->setServerEnabled(id, enabled), done);
  };
  server.handlers.onRemove = [actions](const auto& id, const auto& done) {
    actions->removeServer(id, done);
  };
  installFolders(server, mainLoop, port);
}

/// These handlers are called on the control thread.
void ControlAPI::installFolders(ControlServer& server, MainLoop& mainLoop, const Port& port) {
  server.handlers.rootsProvider = [getRoots = port.getRoots](const auto& done) {
    getRoots([done](const FolderSharing::Roots& roots) {
      if (!roots) return done(roots.error());
      std::vector<json::Object> objects;
      for (const auto& root : *roots) objects.push_back(json::encode(root).as_object());
      done(std::move(objects));
    });
  };
  server.handlers.onAddRoot = mainLoop.later(
      weakly(port.folderSharing, [](FolderSharing& folders, const std::string& id,
                                    const auto& done) { folders.shellAddRoot(id, done); }));
  server.handlers.onSetRootShared = mainLoop.later(
      weakly(port.folderSharing,
             [](FolderSharing& folders, const std::string& id, const std::string& root, bool shared,
                const auto& done) { folders.shellSetRootShared(id, root, shared, done); }));
}

}  // namespace zephyl
