#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include <boost/describe/class.hpp>
#include <boost/describe/enum.hpp>

/// The records of the agent's JSON API, as plain values (see System/Data/JSON.hpp for their
/// decoding). Timestamps are numbers in the agent's own epoch and unit. The agent defines the names
/// in `counters` and the values of `kind` and `code`.
namespace zephyl {

enum class AgentState { connecting, connected, enrolled, disconnected };

BOOST_DESCRIBE_ENUM(AgentState, connecting, connected, enrolled, disconnected)

/// The state of the embeddings model.
enum class ModelPhase { absent, checking, downloading, ready, failed };

BOOST_DESCRIBE_ENUM(ModelPhase, absent, checking, downloading, ready, failed)

/// The agent's connection to one server.
struct AgentConnection {
  std::string serverId;
  AgentState state = AgentState::disconnected;
  std::optional<std::string> machineId;
  std::optional<std::string> lastError;

  bool operator==(const AgentConnection&) const = default;
};
BOOST_DESCRIBE_STRUCT(AgentConnection, (), (serverId, state, machineId, lastError))

/// The agent's own state and its connections.
struct AgentStatus {
  AgentState state = AgentState::disconnected;
  std::optional<std::string> machineId;
  std::optional<std::vector<AgentConnection>> connections;

  bool operator==(const AgentStatus&) const = default;
};
BOOST_DESCRIBE_STRUCT(AgentStatus, (), (state, machineId, connections))

/// A shared folder.
struct SharedRoot {
  std::string root;  ///< the folder's path
  std::string name;
  std::optional<std::vector<std::string>> servers;  ///< ids; nullopt or empty: every server

  bool operator==(const SharedRoot&) const = default;
};
BOOST_DESCRIBE_STRUCT(SharedRoot, (), (root, name, servers))

/// A tool call that the agent has executed.
struct ActivityEvent {
  std::string tool;
  std::optional<std::string> path;
  std::optional<std::string> detail;
  bool ok = false;
  double at = 0;

  bool operator==(const ActivityEvent&) const = default;
};
BOOST_DESCRIBE_STRUCT(ActivityEvent, (), (tool, path, detail, ok, at))

/// The progress of one shared folder's index.
struct IndexProgress {
  std::string root;
  bool ready = false;
  bool embedding = false;
  std::int64_t filesEmbedded = 0;
  std::int64_t chunksEmbedded = 0;
  std::int64_t lexicalFiles = 0;
  bool ragEnabled = false;
  std::optional<std::int64_t> indexBytes;

  bool operator==(const IndexProgress&) const = default;
};
BOOST_DESCRIBE_STRUCT(IndexProgress, (),
                      (root, ready, embedding, filesEmbedded, chunksEmbedded, lexicalFiles,
                       ragEnabled, indexBytes))

/// The state of the embeddings model and of its download.
struct ModelStatus {
  ModelPhase phase = ModelPhase::absent;
  std::int64_t downloadedBytes = 0;
  std::int64_t totalBytes = 0;  ///< 0 while the size is unknown
  std::optional<std::string> error;

  bool operator==(const ModelStatus&) const = default;
};
BOOST_DESCRIBE_STRUCT(ModelStatus, (), (phase, downloadedBytes, totalBytes, error))

/// The reason why a request reaches outside a shared folder.
struct EscapeReason {
  std::string code;
  std::string detail;

  bool operator==(const EscapeReason&) const = default;
};
BOOST_DESCRIBE_STRUCT(EscapeReason, (), (code, detail))

/// A request that reaches outside a shared folder and awaits the user's decision.
struct PendingApproval {
  std::string id;
  std::string kind;
  std::string tool;
  std::string target;
  std::string root;
  std::vector<EscapeReason> reasons;
  std::optional<std::string> userName;
  std::optional<std::string> chatTitle;
  double createdAt = 0;

  bool operator==(const PendingApproval&) const = default;
};
BOOST_DESCRIBE_STRUCT(PendingApproval, (),
                      (id, kind, tool, target, root, reasons, userName, chatTitle, createdAt))

/// A permanent exception for requests outside shared folders.
struct EscapeGrant {
  std::string path;
  std::string root;
  std::string kind;
  double grantedAt = 0;
  std::optional<std::string> grantedBy;

  bool operator==(const EscapeGrant&) const = default;
};
BOOST_DESCRIBE_STRUCT(EscapeGrant, (), (path, root, kind, grantedAt, grantedBy))

/// The agent's activity: an answer of its activity endpoint or an event of its stream.
struct Activity {
  bool busy = false;
  std::int64_t inFlight = 0;
  std::map<std::string, std::int64_t> counters;
  std::vector<ActivityEvent> recent;
  std::vector<IndexProgress> indexing;
  std::optional<ModelStatus> model;
  std::vector<PendingApproval> pendingApprovals;
  std::vector<EscapeGrant> escapeGrants;

  bool operator==(const Activity&) const = default;
};
BOOST_DESCRIBE_STRUCT(Activity, (),
                      (busy, inFlight, counters, recent, indexing, model, pendingApprovals,
                       escapeGrants))
constexpr auto fieldsWithDefault(const Activity*) {
  return std::tuple(&Activity::pendingApprovals, &Activity::escapeGrants);
}

}  // namespace zephyl
