#include "Agent/Agent.hpp"

#include <utility>

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include "Common/Log.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Files.hpp"

namespace zephyl::sandbox {
namespace asio = boost::asio;
namespace {

std::vector<ServerAddress> serversOf(const Settings& settings) {
  if (settings.servers.empty()) return {};
  auto servers = json::decodeText<std::vector<ServerAddress>>(settings.servers);
  if (servers) return *std::move(servers);
  log("ZEPHYL_SERVERS is ignored: {}", servers.error().message);
  return {};
}

/// The first start shares the folders of the settings.
State loadState(const StateFile& file, const Settings& settings) {
  const bool isFirstStart = !file.exists();
  if (auto state = file.load<State>()) return *std::move(state);
  State fresh{.machineId = to_string(boost::uuids::random_generator()())};
  if (!isFirstStart) return fresh;
  Folders folders({});
  for (const auto& path : settings.firstFolders) {
    const auto root = Folders::canonical(path);
    if (!root || !*root) {
      log("not shared: {}", root ? "there is no folder " + path : root.error().message);
    } else if (const auto added = folders.add(**root, std::nullopt, std::nullopt); !added) {
      log("not shared: {}", added.error().message);
    }
  }
  fresh.roots = folders.saved();
  return fresh;
}

Simulation::Behavior behaviorOf(const State& state, const Settings& settings) {
  const auto& cache = settings.modelCacheDirectory;
  const bool isCached = !cache.empty() && fileExists(cache + "/model.ready");
  return {.model = {.present = isCached || state.modelReady,
                    .bytesPerSecond = settings.modelBytesPerSecond,
                    .fails = settings.modelFails},
          .filesEmbeddedPerSecond = settings.filesEmbeddedPerSecond};
}

std::string scopeText(const SharedRoot& shared) {
  if (!shared.servers || shared.servers->empty()) return "every server";
  return counted(std::ssize(*shared.servers), "server");
}

}  // namespace

Agent::Agent(const asio::any_io_executor& executor, const Settings& settings, const StateFile& file)
    : Agent(executor, settings, file, loadState(file, settings)) {}

Agent::Agent(const asio::any_io_executor& executor, const Settings& settings, const StateFile& file,
             const State& state)
    : file_(file),
      machineId_(state.machineId),
      isModelSaved_(state.modelReady),
      folders_(state.roots),
      approvals_(state.escapeGrants, state.requests),
      simulation_(executor, behaviorOf(state, settings), folders_,
                  {.modelSettled = [this] { onModelSettled(); },
                   .embedded = [this](const auto& folders) { onEmbedded(folders); },
                   .advanced = [this] { announce(); }}),
      snapshot_{.changes = Changes(executor)},
      connections_(executor, serversOf(settings), machineId_, settings.connectInterval,
                   [this](const AgentConnection& connection) { onConnection(connection); }),
      indexer_(executor, [this](const IndexReport& report) { onReport(report); }) {
  for (const auto& shared : folders_.shared()) indexer_.add(shared.root);
  save();
  simulation_.start();
}

json::Object Agent::status() const {
  return {{"state", nameOf(connections_.overall())},
          {"machineId", machineId_},
          {"connections", json::encode(connections_.list())}};
}

json::Object Agent::roots() const {
  return {{"roots", json::encode(folders_.shared())}};
}

json::Object Agent::grants() const {
  return {{"escapeGrants", json::encode(approvals_.grants())}};
}

std::shared_ptr<const std::string> Agent::activity() {
  if (std::exchange(snapshot_.isOutdated, false)) {
    auto text = json::compact(describeActivity());
    if (!snapshot_.text || *snapshot_.text != text) {
      snapshot_.text = std::make_shared<const std::string>(std::move(text));
    }
  }
  return snapshot_.text;
}

json::Object Agent::describeActivity() const {
  const auto& model = simulation_.model();
  auto counters = journal_.counters();
  const auto sums = folders_.sums();
  counters["files"] = sums.files;
  counters["bytes"] = sums.bytes;
  return {{"busy", isBusy()},
          {"inFlight", std::ssize(approvals_.pending()) + searches_},
          {"counters", json::encode(counters)},
          {"recent", json::encode(journal_.recent())},
          {"indexing", json::encode(folders_.progress(model.isReady(), model.hasFailed()))},
          {"model", json::encode(model.status())},
          {"pendingApprovals", json::encode(approvals_.pending())},
          {"escapeGrants", json::encode(approvals_.grants())}};
}

bool Agent::isBusy() const {
  return folders_.isIndexing() || !approvals_.pending().empty() || searches_ > 0 ||
         simulation_.isBusy();
}

Result<void> Agent::share(const std::string& root, const std::optional<std::string>& name,
                          const std::optional<std::vector<std::string>>& servers) {
  const auto added = folders_.add(root, name, servers);
  if (!added) return added.error();
  const auto& shared = added->shared;
  const auto detail = "with " + scopeText(shared);
  log("{} {} {}", added->isNew ? "indexing" : "sharing", shared.root, detail);
  journal_.record({.tool = "share", .path = shared.root, .detail = detail});
  if (added->isNew) indexer_.add(shared.root);
  save();
  announce();
  return {};
}

Result<void> Agent::unshare(const std::string& path) {
  const auto removed = folders_.remove(path);
  if (!removed) return removed.error();
  indexer_.remove(removed->root);
  log("no longer sharing {}", removed->root);
  journal_.record({.tool = "unshare", .path = removed->root});
  for (const auto& request : approvals_.forgetFolder(removed->root)) {
    noteSettled(request, "denied, its folder is no longer shared", "denied");
  }
  save();
  announce();
  return {};
}

Result<void> Agent::setServers(const std::string& path, const std::vector<std::string>& servers) {
  const auto changed = folders_.setServers(path, servers);
  if (!changed) return changed.error();
  log("sharing {} with {}", changed->root, scopeText(*changed));
  journal_.record(
      {.tool = "scope", .path = changed->root, .detail = "shared with " + scopeText(*changed)});
  save();
  announce();
  return {};
}

Result<std::optional<std::string>> Agent::raise(PendingApproval request) {
  journal_.count("requests");
  if (approvals_.isGranted(request)) {
    noteSettled(request, "passed, it is a permanent exception", "passed");
    announce();
    return std::optional<std::string>();
  }
  const auto held = approvals_.hold(std::move(request));
  if (!held) return held.error();
  log("request {} waits for approval: {} {}", held->id, held->tool, held->target);
  save();
  announce();
  return std::optional(held->id);
}

Result<void> Agent::decide(std::string_view id, Decision decision) {
  const auto settled = approvals_.decide(id, decision);
  if (!settled) return settled.error();
  const bool denied = decision == Decision::deny;
  const bool always = decision == Decision::always;
  const auto* verdict = denied ? "denied" : always ? "always allowed" : "approved";
  for (const auto& request : *settled) {
    noteSettled(request, verdict, denied ? "denied" : "approved");
  }
  if (always) save();
  announce();
  return {};
}

Result<void> Agent::withdraw(std::string_view id) {
  const auto withdrawn = approvals_.withdraw(id);
  if (!withdrawn) return withdrawn.error();
  noteSettled(*withdrawn, "withdrawn", "withdrawn");
  announce();
  return {};
}

void Agent::noteSettled(const PendingApproval& request, std::string_view verdict,
                        std::string_view counter) {
  journal_.count(std::string(counter));
  const bool ok = counter == "approved" || counter == "passed";
  log("request {}{}: {} {}", request.id.empty() ? "" : request.id + " ", verdict, request.tool,
      request.target);
  journal_.record(
      {.tool = request.tool, .path = request.target, .detail = std::string(verdict), .ok = ok});
}

Result<void> Agent::revoke(std::string_view kind, std::string_view path) {
  const auto revoked = approvals_.revoke(kind, path);
  if (!revoked) return revoked.error();
  log("exception revoked: {} {}", kind, path);
  journal_.record({.tool = "revoke", .path = std::string(path)});
  save();
  announce();
  return {};
}

void Agent::forceBusy(std::chrono::milliseconds duration) {
  simulation_.forceBusy(duration);
  announce();
  simulation_.start();
}

asio::awaitable<std::vector<std::string>> Agent::search(std::string word) {
  ++searches_;
  announce();
  auto found = co_await indexer_.find(word);
  --searches_;
  journal_.count("searches");
  journal_.record({.tool = "search", .detail = word + ": " + counted(std::ssize(found), "file")});
  announce();
  for (auto& path : found) path = visible(path);
  co_return found;
}

void Agent::save() {
  const auto saved = file_.save(json::encode(State{.machineId = machineId_,
                                                   .roots = folders_.saved(),
                                                   .escapeGrants = approvals_.grants(),
                                                   .modelReady = isModelSaved_,
                                                   .requests = approvals_.lastId()}));
  if (!saved) logLine(saved.error().message);
}

void Agent::onReport(const IndexReport& report) {
  if (!folders_.apply(report)) return;
  if (report.walked) {
    const auto files = counted(report.files, "file");
    log("sharing {} ({})", report.root, report.missing ? "missing" : files);
    journal_.record({.tool = "index",
                     .path = report.root,
                     .detail = report.missing ? "the folder is not there" : files,
                     .ok = !report.missing});
  } else if (report.changed > 0) {
    const bool one = report.changed == 1;
    journal_.record({.tool = "index",
                     .path = one ? report.root + '/' + visible(report.changedPath) : report.root,
                     .detail = counted(report.changed, "file") + " changed"});
  }
  announce();
  simulation_.start();
}

void Agent::onConnection(const AgentConnection& connection) {
  const auto state = std::string(nameOf(connection.state));
  const auto detail = connection.lastError ? state + ": " + *connection.lastError : state;
  log("server {} {}", connection.serverId, detail);
  journal_.record({.tool = "connect",
                   .path = connection.serverId,
                   .detail = detail,
                   .ok = !connection.lastError});
  announce();
}

void Agent::onModelSettled() {
  const auto& model = simulation_.model();
  const auto& error = model.status().error;
  log("embeddings model {}", model.isReady() ? "ready" : "failed: " + error.value_or(""));
  journal_.record({.tool = "model", .detail = error.value_or("ready"), .ok = model.isReady()});
  if (!model.isReady()) return;
  isModelSaved_ = true;
  save();
}

void Agent::onEmbedded(const std::vector<SharedRoot>& folders) {
  for (const auto& shared : folders) {
    journal_.record({.tool = "embed", .path = shared.root, .detail = "complete"});
  }
  save();
}

void Agent::announce() {
  snapshot_.isOutdated = true;
  snapshot_.changes.notify();
}

}  // namespace zephyl::sandbox
