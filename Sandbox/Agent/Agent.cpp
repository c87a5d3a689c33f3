#include "Agent/Agent.hpp"

#include <filesystem>
#include <utility>

#include <fmt/format.h>

#include "Agent/Text.hpp"
#include "Common/Log.hpp"

namespace zephyl::sandbox {
namespace asio = boost::asio;
namespace json = boost::json;
using namespace std::chrono_literals;
using std::chrono::steady_clock;
namespace {

constexpr auto tickInterval = 100ms;

std::vector<ServerAddress> serversOf(const Settings& settings) {
  auto servers = parseServers(settings.servers);
  if (servers) return *servers;
  log("ZEPHYL_SERVERS is ignored: {}", servers.error().message);
  return {};
}

std::string scopeText(const SharedRoot& shared) {
  if (!shared.servers || shared.servers->empty()) return "every server";
  return counted(static_cast<long long>(shared.servers->size()), "server");
}

}  // namespace

Agent::Agent(asio::io_context& io, const Settings& settings, const StateFile& file)
    : Agent(io, settings, file, loadState(file, settings)) {}

Agent::Agent(asio::io_context& io, const Settings& settings, const StateFile& file,
             const State& state)
    : file_(file),
      machineId_(state.machineId),
      filesEmbeddedPerSecond_(settings.filesEmbeddedPerSecond),
      modelRemembered_(state.modelReady),
      folders_(state.folders),
      approvals_(state.grants, state.requests),
      model_(makeModel(state, settings)),
      tick_(io),
      connections_(io.get_executor(), serversOf(settings), machineId_, settings.connectInterval,
                   [this](const AgentConnection& connection) { onConnection(connection); }),
      indexer_(io.get_executor(), [this](const IndexReport& report) { onReport(report); }) {
  for (const auto& shared : folders_.shared()) indexer_.add(shared.root);
  save();
  keepTicking();
}

State Agent::loadState(const StateFile& file, const Settings& settings) {
  if (auto state = file.load()) return *state;
  auto state = freshState();
  Folders folders({});
  for (const auto& path : settings.firstFolders) {
    const auto added = folders.add(path, std::nullopt, std::nullopt);
    if (!added) log("not shared: {}", added.error().message);
  }
  state.folders = folders.remember();
  return state;
}

EmbeddingModel Agent::makeModel(const State& state, const Settings& settings) {
  std::error_code error;
  const auto& cache = settings.modelCacheDirectory;
  const bool cached = !cache.empty() && std::filesystem::exists(cache + "/model.ready", error);
  return EmbeddingModel({.present = cached || state.modelReady,
                         .bytesPerSecond = settings.modelBytesPerSecond,
                         .fails = settings.modelFails});
}

json::object Agent::status() const {
  return {{"state", name(connections_.overall())},
          {"machineId", machineId_},
          {"connections", toJsonArray(connections_.list())}};
}

json::object Agent::roots() const {
  return {{"roots", toJsonArray(folders_.shared())}};
}

json::object Agent::grants() const {
  return {{"escapeGrants", toJsonArray(approvals_.grants())}};
}

std::shared_ptr<const std::string> Agent::activity() {
  if (std::exchange(snapshotOutdated_, false)) {
    auto text = json::serialize(describeActivity());
    if (!snapshot_ || *snapshot_ != text) {
      snapshot_ = std::make_shared<const std::string>(std::move(text));
    }
  }
  return snapshot_;
}

json::object Agent::describeActivity() const {
  json::object counters;
  for (const auto& [counter, value] : journal_.counters()) counters[counter] = value;
  const auto sums = folders_.sums();
  counters["files"] = sums.files;
  counters["bytes"] = sums.bytes;
  return {{"busy", busy()},
          {"inFlight", static_cast<std::int64_t>(approvals_.pending().size()) + searches_},
          {"counters", std::move(counters)},
          {"recent", toJsonArray(journal_.recent())},
          {"indexing", toJsonArray(folders_.progress(model_.ready(), model_.failed()))},
          {"model", toJson(model_.status())},
          {"pendingApprovals", toJsonArray(approvals_.pending())},
          {"escapeGrants", toJsonArray(approvals_.grants())}};
}

bool Agent::forcedBusy() const {
  return busyUntil_ && steady_clock::now() < *busyUntil_;
}

bool Agent::busy() const {
  const bool embedding = model_.ready() && folders_.embeddingOutstanding();
  return folders_.indexing() || embedding || !approvals_.pending().empty() || searches_ > 0 ||
         forcedBusy();
}

Outcome<void> Agent::share(const std::string& path, const std::optional<std::string>& name,
                           const std::optional<std::vector<std::string>>& servers) {
  const auto added = folders_.add(path, name, servers);
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

Outcome<void> Agent::unshare(const std::string& path) {
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

Outcome<void> Agent::setServers(const std::string& path, const std::vector<std::string>& servers) {
  const auto changed = folders_.setServers(path, servers);
  if (!changed) return changed.error();
  log("sharing {} with {}", changed->root, scopeText(*changed));
  journal_.record(
      {.tool = "scope", .path = changed->root, .detail = "shared with " + scopeText(*changed)});
  save();
  announce();
  return {};
}

Outcome<std::string> Agent::requestRoot(const std::optional<std::string>& path) const {
  if (path) return folders_.find(*path);
  const auto shared = folders_.shared();
  if (shared.empty()) return conflict("no folder is shared");
  return shared.front().root;
}

Outcome<std::optional<std::string>> Agent::raise(PendingApproval request) {
  journal_.count("requests");
  if (approvals_.granted(request)) {
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

Outcome<void> Agent::decide(std::string_view id, Decision decision) {
  const auto settled = approvals_.decide(id, decision);
  if (!settled) return settled.error();
  const bool denied = decision == Decision::deny;
  const bool always = decision == Decision::always;
  const auto* verdict = denied ? "denied" : always ? "always allowed" : "approved";
  for (const auto& request : *settled)
    noteSettled(request, verdict, denied ? "denied" : "approved");
  if (always) save();
  announce();
  return {};
}

Outcome<void> Agent::withdraw(std::string_view id) {
  const auto withdrawn = approvals_.withdraw(id);
  if (!withdrawn) return withdrawn.error();
  noteSettled(*withdrawn, "withdrawn", "withdrawn");
  announce();
  return {};
}

void Agent::noteSettled(const PendingApproval& request, std::string_view verdict,
                        std::string_view counter) {
  journal_.count(counter);
  const bool ok = counter == "approved" || counter == "passed";
  log("request {}{}: {} {}", request.id.empty() ? "" : request.id + " ", verdict, request.tool,
      request.target);
  journal_.record(
      {.tool = request.tool, .path = request.target, .detail = std::string(verdict), .ok = ok});
}

Outcome<RequestState> Agent::requestState(const std::string& id) const {
  return approvals_.stateOf(id);
}

Outcome<void> Agent::revoke(std::string_view kind, std::string_view path) {
  const auto revoked = approvals_.revoke(kind, path);
  if (!revoked) return revoked.error();
  log("exception revoked: {} {}", kind, path);
  journal_.record({.tool = "revoke", .path = std::string(path)});
  save();
  announce();
  return {};
}

void Agent::forceBusy(std::chrono::milliseconds duration) {
  busyUntil_ = steady_clock::now() + duration;
  announce();
  keepTicking();
}

void Agent::search(const std::string& word, Indexer::OnFound onFound) {
  ++searches_;
  announce();
  indexer_.find(word, [this, word, onFound = std::move(onFound)](std::vector<std::string> found) {
    --searches_;
    const auto files = counted(static_cast<long long>(found.size()), "file");
    journal_.count("searches");
    journal_.record({.tool = "search", .detail = fmt::format("{}: {}", word, files)});
    announce();
    for (auto& path : found) path = toUtf8(path);
    onFound(std::move(found));
  });
}

void Agent::save() {
  file_.save({.machineId = machineId_,
              .folders = folders_.remember(),
              .grants = approvals_.grants(),
              .modelReady = modelRemembered_,
              .requests = approvals_.lastId()});
}

void Agent::onReport(const IndexReport& report) {
  if (!folders_.apply(report)) return;
  if (report.walked) {
    const auto files = counted(report.files, "file");
    log("sharing {} ({})", report.root, report.missing ? "not there" : files);
    journal_.record({.tool = "index",
                     .path = report.root,
                     .detail = report.missing ? "the folder is not there" : files,
                     .ok = !report.missing});
  } else if (report.changed > 0) {
    const bool one = report.changed == 1;
    journal_.record({.tool = "index",
                     .path = one ? report.root + '/' + toUtf8(report.changedPath) : report.root,
                     .detail = counted(report.changed, "file") + " changed"});
  }
  announce();
  keepTicking();
}

void Agent::onConnection(const AgentConnection& connection) {
  const auto state = std::string(name(connection.state));
  const auto detail = connection.lastError ? state + ": " + *connection.lastError : state;
  log("server {} {}", connection.serverId, detail);
  journal_.record({.tool = "connect",
                   .path = connection.serverId,
                   .detail = detail,
                   .ok = !connection.lastError});
  announce();
}

void Agent::keepTicking() {
  const bool embedding = model_.ready() && folders_.embeddingOutstanding();
  if (ticking_ || (model_.settled() && !embedding && !busyUntil_)) return;
  ticking_ = true;
  const auto began = steady_clock::now();
  tick_.expires_after(tickInterval);
  tick_.async_wait([this, began](boost::system::error_code error) {
    ticking_ = false;
    if (error) return;
    advance(std::chrono::duration<double>(steady_clock::now() - began).count());
    announce();
    keepTicking();
  });
}

void Agent::advance(double seconds) {
  if (busyUntil_ && !forcedBusy()) busyUntil_.reset();
  if (!model_.settled()) advanceModel(seconds);
  if (!model_.ready()) return;
  const auto finished = folders_.embed(filesEmbeddedPerSecond_ * seconds);
  for (const auto& shared : finished) {
    journal_.record({.tool = "embed", .path = shared.root, .detail = "complete"});
  }
  if (!finished.empty()) save();
}

void Agent::advanceModel(double seconds) {
  model_.advance(seconds);
  if (!model_.settled()) return;
  const auto& error = model_.status().error;
  log("embeddings model {}", model_.ready() ? "ready" : "failed: " + error.value_or(""));
  journal_.record({.tool = "model", .detail = error.value_or("ready"), .ok = model_.ready()});
  if (model_.ready()) {
    modelRemembered_ = true;
    save();
  }
}

void Agent::announce() {
  snapshotOutdated_ = true;
  changed_.raise();
}

}  // namespace zephyl::sandbox
