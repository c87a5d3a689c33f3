#include "ZephylTray/Control/Diagnostics.hpp"

#include <algorithm>

#include "System/Data/Text.hpp"
#include "ZephylTray/Agent/ServerConnections.hpp"

namespace zephyl {

namespace {

#ifdef __APPLE__
constexpr auto platform = "macos";
#else
constexpr auto platform = "linux";
#endif

template <typename Record>
json::Object objectOf(const Record& record) {
  return json::encode(record).as_object();
}

/// Returns the encoded value, or null if it is absent.
template <typename T>
json::Value orNull(const std::optional<T>& value) {
  return value ? json::encode(*value) : json::Value(nullptr);
}

void addIfPresent(json::Object& object, std::string_view key,
                  const std::optional<std::string>& text) {
  if (text && !text->empty()) object.emplace(key, *text);
}

json::Array newest(const std::vector<std::string>& log) {
  const std::size_t skipped = log.size() - std::min(log.size(), Diagnostics::maxLogLines);
  json::Array lines;
  for (std::size_t i = skipped; i < log.size(); ++i) lines.emplace_back(visible(log[i]));
  return lines;
}

void addTailnet(json::Object& server, const Diagnostics::Tailnet& tailnet) {
  const auto& state = tailnet.state;
  addIfPresent(server, "boundAddress", state.boundAddress);
  addIfPresent(server, "relay", state.activeRelay);
  addIfPresent(server, "addressUnresolved", state.unresolvedTarget);
  addIfPresent(server, "enrolError", state.lastEnrolError);
  addIfPresent(server, "tailnetStalled", state.stalledReason);
  if (!tailnet.log.empty()) server.emplace("log", newest(tailnet.log));
}

json::Object describeServer(const Diagnostics& all, const ServerEntry& entry) {
  const auto tailnet = std::ranges::find(all.tailnets, entry.id, &Diagnostics::Tailnet::serverId);
  const bool known = tailnet != all.tailnets.end();
  const auto connection = all.view.status ? connectionOf(*all.view.status, entry) : std::nullopt;
  json::Object server{
      {"id", entry.id},
      {"name", entry.displayName()},
      {"enabled", entry.enabled},
      {"usesTailnet", entry.isJoined()},
      {"tailnetRunning", known && tailnet->running},
      {"connection", orNull(connection)},
  };
  if (known) addTailnet(server, *tailnet);
  if (connection) addIfPresent(server, "agentError", connection->lastError);
  return server;
}

json::Object describeAgent(const Diagnostics& all) {
  const auto& status = all.view.status;
  return {
      {"reachable", all.view.reachable},
      {"running", all.agent.running},
      {"managed", all.agent.managed},
      {"state", status ? json::encode(status->state) : json::Value(nullptr)},
      {"machineId", status ? orNull(status->machineId) : json::Value(nullptr)},
  };
}

json::Object describeActivity(const Activity& activity) {
  json::Array recent;
  for (const auto& event : activity.recent) {
    recent.push_back({{"tool", event.tool},
                      {"path", orNull(event.path)},
                      {"detail", orNull(event.detail)},
                      {"at", event.at}});
  }
  return {{"busy", activity.busy},
          {"inFlight", activity.inFlight},
          {"counters", json::encode(activity.counters)},
          {"recent", std::move(recent)}};
}

json::Array describeIndexing(const Activity& activity) {
  json::Array roots;
  for (const auto& progress : activity.indexing) {
    auto root = objectOf(progress);
    root["indexBytes"] = orNull(progress.indexBytes);
    roots.emplace_back(std::move(root));
  }
  return roots;
}

json::Object describeModel(const Activity& activity) {
  const auto model = activity.model.value_or(ModelStatus{});
  auto object = objectOf(model);
  object["error"] = orNull(model.error);
  return object;
}

}  // namespace

json::Object Diagnostics::toJSON() const {
  json::Array allServers;
  for (const auto& entry : servers) allServers.emplace_back(describeServer(*this, entry));
  const auto activity = view.activity.value_or(Activity{});
  return {
      {"tray",
       {{"version", visible(tray.version)},
        {"platform", platform},
        {"trayPort", tray.trayPort},
        {"repoRoot", visible(tray.repoRoot)},
        {"standalone", tray.standalone}}},
      {"agent", describeAgent(*this)},
      {"servers", std::move(allServers)},
      {"activity", describeActivity(activity)},
      {"indexing", describeIndexing(activity)},
      {"model", describeModel(activity)},
  };
}

}  // namespace zephyl
