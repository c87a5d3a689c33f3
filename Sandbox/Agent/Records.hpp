#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/describe/class.hpp>
#include <boost/describe/enum.hpp>
#include <boost/describe/enum_to_string.hpp>

#include "System/Data/Format.hpp"
#include "System/Data/JSON.hpp"

/// The records of the agent's JSON API and of its state. Absent optionals are omitted. Timestamps
/// are milliseconds since 1970. All texts are valid UTF-8.
namespace zephyl::sandbox {

enum class AgentState { connecting, connected, enrolled, disconnected };
BOOST_DESCRIBE_ENUM(AgentState, connecting, connected, enrolled, disconnected)

enum class ModelPhase { absent, checking, downloading, ready, failed };
BOOST_DESCRIBE_ENUM(ModelPhase, absent, checking, downloading, ready, failed)

enum class RequestState { pending, approved, denied, withdrawn };
BOOST_DESCRIBE_ENUM(RequestState, pending, approved, denied, withdrawn)

struct AgentConnection {
  std::string serverId;
  AgentState state = AgentState::connecting;
  std::optional<std::string> machineId = {};
  std::optional<std::string> lastError = {};
};
BOOST_DESCRIBE_STRUCT(AgentConnection, (), (serverId, state, machineId, lastError))

struct SharedRoot {
  std::string root;
  std::string name;
  /// If absent or empty, the folder is shared with every server.
  std::optional<std::vector<std::string>> servers = {};
};
BOOST_DESCRIBE_STRUCT(SharedRoot, (), (root, name, servers))

struct ActivityEvent {
  std::string tool;
  std::optional<std::string> path = {};
  std::optional<std::string> detail = {};
  bool ok = true;
  std::int64_t at = 0;
};
BOOST_DESCRIBE_STRUCT(ActivityEvent, (), (tool, path, detail, ok, at))

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
BOOST_DESCRIBE_STRUCT(IndexProgress, (),
                      (root, ready, embedding, filesEmbedded, chunksEmbedded, lexicalFiles,
                       ragEnabled, indexBytes))

struct ModelStatus {
  ModelPhase phase = ModelPhase::absent;
  std::int64_t downloadedBytes = 0;
  std::int64_t totalBytes = 0;
  std::optional<std::string> error = {};
};
BOOST_DESCRIBE_STRUCT(ModelStatus, (), (phase, downloadedBytes, totalBytes, error))

struct EscapeReason {
  std::string code;
  std::string detail;
};
BOOST_DESCRIBE_STRUCT(EscapeReason, (), (code, detail))

struct PendingApproval {
  std::string id = {};
  std::string kind;
  std::string tool;
  std::string target;
  std::string root;
  std::vector<EscapeReason> reasons;
  std::optional<std::string> userName = {};
  std::optional<std::string> chatTitle = {};
  std::int64_t createdAt = 0;
};
BOOST_DESCRIBE_STRUCT(PendingApproval, (),
                      (id, kind, tool, target, root, reasons, userName, chatTitle, createdAt))

struct EscapeGrant {
  std::string path;
  std::string root;
  std::string kind;
  std::int64_t grantedAt = 0;
  std::optional<std::string> grantedBy = {};
};
BOOST_DESCRIBE_STRUCT(EscapeGrant, (), (path, root, kind, grantedAt, grantedBy))

/// A shared folder in the state file.
struct SavedFolder {
  std::string root;
  std::string name;
  std::optional<std::vector<std::string>> servers = {};
  std::int64_t filesEmbedded = 0;
};
BOOST_DESCRIBE_STRUCT(SavedFolder, (), (root, name, servers, filesEmbedded))

/// The persistent state of the agent.
struct State {
  /// Random at the first start, then stable.
  std::string machineId;
  std::vector<SavedFolder> roots = {};
  std::vector<EscapeGrant> escapeGrants = {};
  bool modelReady = false;
  /// The number of requests that were ever held, which is the id of the last one.
  std::int64_t requests = 0;
};
BOOST_DESCRIBE_STRUCT(State, (), (machineId, roots, escapeGrants, modelReady, requests))

/// One server that the agent is to connect to.
struct ServerAddress {
  std::string url;
  std::string label;
  /// "address:port" of the SOCKS proxy through which the server is reached.
  std::optional<std::string> socks5 = {};
  std::optional<std::string> agentId = {};
};
BOOST_DESCRIBE_STRUCT(ServerAddress, (), (url, label, socks5, agentId))

template <json::NamedEnum Enum>
std::string_view nameOf(Enum value) {
  return boost::describe::enum_to_string(value, "");
}

inline std::int64_t millisecondsSinceEpoch() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

/// "1 file", "2 files".
inline std::string counted(std::int64_t count, std::string_view noun) {
  return formatText("{} {}{}", count, noun, count == 1 ? "" : "s");
}

}  // namespace zephyl::sandbox
