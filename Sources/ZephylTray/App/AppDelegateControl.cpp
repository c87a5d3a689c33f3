#include "System/Concurrency/MainLoop.hpp"
#include "System/Files/UserDefaults.hpp"
#include "ZephylTray/Agent/ServerConnections.hpp"
#include "ZephylTray/App/AppDelegate.hpp"
#include "ZephylTray/Config/Config.hpp"
#include "ZephylTray/Control/ControlRecords.hpp"
#include "ZephylTray/Control/Diagnostics.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {

namespace {

/// The text, unless it says nothing.
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

void addTailnet(ControlServerRecord& record, const TailnetProcess& tailnet) {
  const auto state = tailnet.state();
  record.running = tailnet.isRunning();
  record.boundAddress = nonEmpty(state.boundAddress);
  record.relay = nonEmpty(state.activeRelay);
  record.addressUnresolved = nonEmpty(state.unresolvedTarget);
  record.enrolError = nonEmpty(state.lastEnrolError);
  record.tailnetStalled = nonEmpty(state.stalledReason);
}

void shellListRoots(const AgentClient& client, const ControlServer::RootsCompletion& done) {
  client.getRoots([done](Result<std::vector<SharedRoot>> roots) {
    if (!roots) return done(roots.error());
    std::vector<json::Object> objects;
    for (const auto& root : *roots) objects.push_back(json::encode(root).as_object());
    done(std::move(objects));
  });
}

void addConnection(ControlServerRecord& record, const AgentConnection& connection) {
  // The agent calls a connection enrolled once its folders are known to the server.
  record.enrolled =
      connection.state == AgentState::connected || connection.state == AgentState::enrolled;
  record.agentError = nonEmpty(connection.lastError);
}

}  // namespace

void AppDelegate::installControlHandlers() {
  // The server never outlives the controller, and its handlers for the main thread run nowhere
  // else, so they need not hold it weakly.
  control_.onInvite = [this](const std::string& key, const auto& done) {
    completeWhenRetired(redeem(key), done);
  };
  control_.statusProvider = [this] { return controlStatus(); };
  control_.serversProvider = [this] { return controlServers(); };
  control_.onSetLabel = [this](const auto& id, const auto& label) {
    return setServerLabel(id, label);
  };
  control_.onSetAccent = [this](const auto& id, const auto& accent) {
    return setServerAccent(id, accent);
  };
  control_.onSetEnabled = [this](const auto& id, bool on, const auto& done) {
    completeWhenRetired(setServerEnabled(id, on), done);
  };
  control_.onRemove = [this](const auto& id, const auto& done) { removeServer(id, done); };
  control_.diagnosticsProvider = [this] { return diagnostics(); };
  control_.onRestartAgent = [this] { agent_->restart(); };
}

/// Passes on a failure at once, success when the children of the servers concerned have ended.
void AppDelegate::completeWhenRetired(ControlServer::Failure failure,
                                      const ControlServer::Completion& done) {
  if (failure) return done(std::move(failure));
  tailnet_->whenRetired([done] { done(std::nullopt); });
}

/// These are called on the control thread, which must never be the last to hold the controller.
void AppDelegate::installFolderHandlers() {
  control_.rootsProvider = [client = client_](const auto& done) { shellListRoots(client, done); };
  control_.onAddRoot = [this](const auto& id, const auto& done) {
    runtime_.mainLoop.async(weakly([id, done](AppDelegate& self) { self.shellAddRoot(id, done); }));
  };
  control_.onSetRootShared = [this](const auto& id, const auto& root, bool shared,
                                    const auto& done) {
    runtime_.mainLoop.async(weakly([id, root, shared, done](AppDelegate& self) {
      self.shellSetRootShared(id, root, shared, done);
    }));
  };
}

json::Object AppDelegate::controlStatus() const {
  ControlStatus status{
      .available = Config::tailnetProgramsInstalled(),
      .enrolled = nonEmpty(Config::defaults().string("tailnetFingerprint")).has_value(),
      .running = tailnet_->anyRunning(),
  };
  if (const auto primary = tailnet_->primary()) {
    const auto state = primary->state();
    status.url = webAddressOf(state.boundAddress);
    status.relay = nonEmpty(state.activeRelay);
  }
  return json::encode(status).as_object();
}

std::vector<json::Object> AppDelegate::controlServers() const {
  const auto connections =
      agentView_.status ? ServerConnections(*agentView_.status) : ServerConnections();
  std::vector<json::Object> servers;
  for (const auto& entry : Servers::all()) {
    ControlServerRecord record;
    addEntry(record, entry);
    if (const auto tailnet = tailnet_->find(entry.id)) addTailnet(record, *tailnet);
    if (const auto* connection = connections.of(entry)) addConnection(record, *connection);
    record.webUrl = webAddressOf(record.boundAddress);
    servers.push_back(json::encode(record).as_object());
  }
  return servers;
}

json::Object AppDelegate::diagnostics() const {
  Diagnostics diagnostics{
      .tray = {.version = Updater::currentVersion(),
               .trayPort = agentPort_,
               .repoRoot = Config::repoRoot(),
               .standalone = Config::bundledRuntimeDir().has_value()},
      .agent = {.running = agent_->isRunning(), .managed = agent_->isManaged()},
      .view = agentView_,
      .servers = Servers::all(),
  };
  for (const auto& tailnet : tailnet_->instances()) {
    diagnostics.tailnets.push_back({.serverId = tailnet->server().id,
                                    .running = tailnet->isRunning(),
                                    .state = tailnet->state(),
                                    .log = tailnet->recentLog()});
  }
  return diagnostics.toJSON();
}

}  // namespace zephyl
