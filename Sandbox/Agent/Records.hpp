#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/json.hpp>

/// The records of the agent's JSON API. Keys are the field names; an absent optional is left out.
/// Timestamps are milliseconds since 1970. All texts are valid UTF-8.
namespace zephyl::sandbox {

enum class AgentState { connecting, connected, enrolled, disconnected };
enum class ModelPhase { absent, checking, downloading, ready, failed };

struct AgentConnection {
  std::string serverId;
  AgentState state = AgentState::connecting;
  std::optional<std::string> machineId;
  std::optional<std::string> lastError;
};

struct SharedRoot {
  std::string root;
  std::string name;
  /// Absent or empty: shared with every server.
  std::optional<std::vector<std::string>> servers;
};

struct ActivityEvent {
  std::string tool;
  std::optional<std::string> path;
  std::optional<std::string> detail;
  bool ok = true;
  std::int64_t at = 0;
};

struct IndexProgress {
  std::string root;
  bool ready = false;
  bool embedding = false;
  std::int64_t filesEmbedded = 0;
  std::int64_t chunksEmbedded = 0;
  std::int64_t lexicalFiles = 0;
  bool ragEnabled = true;
  std::int64_t indexBytes = 0;
};

struct ModelStatus {
  ModelPhase phase = ModelPhase::absent;
  std::int64_t downloadedBytes = 0;
  std::int64_t totalBytes = 0;
  std::optional<std::string> error;
};

struct EscapeReason {
  std::string code;
  std::string detail;
};

struct PendingApproval {
  std::string id;
  std::string kind;
  std::string tool;
  std::string target;
  std::string root;
  std::vector<EscapeReason> reasons;
  std::optional<std::string> userName;
  std::optional<std::string> chatTitle;
  std::int64_t createdAt = 0;
};

struct EscapeGrant {
  std::string path;
  std::string root;
  std::string kind;
  std::int64_t grantedAt = 0;
  std::optional<std::string> grantedBy;
};

std::int64_t millisecondsSinceEpoch();

std::string_view name(AgentState state);
std::string_view name(ModelPhase phase);

boost::json::object toJson(const AgentConnection& connection);
boost::json::object toJson(const SharedRoot& root);
boost::json::object toJson(const ActivityEvent& event);
boost::json::object toJson(const IndexProgress& progress);
boost::json::object toJson(const ModelStatus& status);
boost::json::object toJson(const PendingApproval& approval);
boost::json::object toJson(const EscapeGrant& grant);

template <typename Records>
boost::json::array toJsonArray(const Records& records) {
  boost::json::array array;
  for (const auto& record : records) array.push_back(toJson(record));
  return array;
}

}  // namespace zephyl::sandbox
