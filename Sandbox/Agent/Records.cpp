#include "Agent/Records.hpp"

#include <chrono>

namespace zephyl::sandbox {
namespace json = boost::json;
namespace {

void put(json::object& object, std::string_view key, const std::optional<std::string>& value) {
  if (value) object[key] = *value;
}

}  // namespace

std::int64_t millisecondsSinceEpoch() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

std::string_view name(AgentState state) {
  switch (state) {
    case AgentState::connecting:
      return "connecting";
    case AgentState::connected:
      return "connected";
    case AgentState::enrolled:
      return "enrolled";
    case AgentState::disconnected:
      break;
  }
  return "disconnected";
}

std::string_view name(ModelPhase phase) {
  switch (phase) {
    case ModelPhase::absent:
      return "absent";
    case ModelPhase::checking:
      return "checking";
    case ModelPhase::downloading:
      return "downloading";
    case ModelPhase::ready:
      return "ready";
    case ModelPhase::failed:
      break;
  }
  return "failed";
}

json::object toJson(const AgentConnection& connection) {
  json::object object{{"serverId", connection.serverId}, {"state", name(connection.state)}};
  put(object, "machineId", connection.machineId);
  put(object, "lastError", connection.lastError);
  return object;
}

json::object toJson(const SharedRoot& root) {
  json::object object{{"root", root.root}, {"name", root.name}};
  if (root.servers) object["servers"] = json::value_from(*root.servers);
  return object;
}

json::object toJson(const ActivityEvent& event) {
  json::object object{{"tool", event.tool}, {"ok", event.ok}, {"at", event.at}};
  put(object, "path", event.path);
  put(object, "detail", event.detail);
  return object;
}

json::object toJson(const IndexProgress& progress) {
  return {{"root", progress.root},
          {"ready", progress.ready},
          {"embedding", progress.embedding},
          {"filesEmbedded", progress.filesEmbedded},
          {"chunksEmbedded", progress.chunksEmbedded},
          {"lexicalFiles", progress.lexicalFiles},
          {"ragEnabled", progress.ragEnabled},
          {"indexBytes", progress.indexBytes}};
}

json::object toJson(const ModelStatus& status) {
  json::object object{{"phase", name(status.phase)},
                      {"downloadedBytes", status.downloadedBytes},
                      {"totalBytes", status.totalBytes}};
  put(object, "error", status.error);
  return object;
}

json::object toJson(const PendingApproval& approval) {
  json::array reasons;
  for (const auto& reason : approval.reasons) {
    reasons.push_back(json::object{{"code", reason.code}, {"detail", reason.detail}});
  }
  json::object object{{"id", approval.id},
                      {"kind", approval.kind},
                      {"tool", approval.tool},
                      {"target", approval.target},
                      {"root", approval.root},
                      {"reasons", std::move(reasons)},
                      {"createdAt", approval.createdAt}};
  put(object, "userName", approval.userName);
  put(object, "chatTitle", approval.chatTitle);
  return object;
}

json::object toJson(const EscapeGrant& grant) {
  json::object object{{"path", grant.path},
                      {"root", grant.root},
                      {"kind", grant.kind},
                      {"grantedAt", grant.grantedAt}};
  put(object, "grantedBy", grant.grantedBy);
  return object;
}

}  // namespace zephyl::sandbox
