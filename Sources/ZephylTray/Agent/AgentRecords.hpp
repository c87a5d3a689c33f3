#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What the agent's JSON API says, as plain values (see System/JSON.hpp for how they decode).
/// Timestamps are numbers as the agent sends them; their epoch and unit are the agent's. The
/// names in `counters` and the values of `kind` and `code` are the agent's too.
namespace zephyl {

enum class AgentState { connecting, connected, enrolled, disconnected };

constexpr std::array<std::string_view, 4> enumNames(AgentState) {
  return {"connecting", "connected", "enrolled", "disconnected"};
}

/// Where the embeddings model stands.
enum class ModelPhase { absent, checking, downloading, ready, failed };

constexpr std::array<std::string_view, 5> enumNames(ModelPhase) {
  return {"absent", "checking", "downloading", "ready", "failed"};
}

/// The agent's connection to one server.
struct AgentConnection {
  std::string serverId;
  AgentState state = AgentState::disconnected;
  std::optional<std::string> machineId;
  std::optional<std::string> lastError;

  bool operator==(const AgentConnection&) const = default;

  template <typename Self, typename Fields>
  static void describe(Self& self, Fields& fields) {
    fields("serverId", self.serverId);
    fields("state", self.state);
    fields("machineId", self.machineId);
    fields("lastError", self.lastError);
  }
};

struct AgentStatus {
  AgentState state = AgentState::disconnected;
  std::optional<std::string> machineId;
  std::optional<std::vector<AgentConnection>> connections;

  bool operator==(const AgentStatus&) const = default;

  template <typename Self, typename Fields>
  static void describe(Self& self, Fields& fields) {
    fields("state", self.state);
    fields("machineId", self.machineId);
    fields("connections", self.connections);
  }
};

/// A shared folder.
struct SharedRoot {
  std::string root;  ///< the folder's path
  std::string name;
  std::optional<std::vector<std::string>> servers;  ///< ids; none or empty: every server

  bool operator==(const SharedRoot&) const = default;

  template <typename Self, typename Fields>
  static void describe(Self& self, Fields& fields) {
    fields("root", self.root);
    fields("name", self.name);
    fields("servers", self.servers);
  }
};

/// A tool that the agent ran.
struct ActivityEvent {
  std::string tool;
  std::optional<std::string> path;
  std::optional<std::string> detail;
  bool ok = false;
  double at = 0;

  bool operator==(const ActivityEvent&) const = default;

  template <typename Self, typename Fields>
  static void describe(Self& self, Fields& fields) {
    fields("tool", self.tool);
    fields("path", self.path);
    fields("detail", self.detail);
    fields("ok", self.ok);
    fields("at", self.at);
  }
};

/// How far the index of one shared folder is.
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

  template <typename Self, typename Fields>
  static void describe(Self& self, Fields& fields) {
    fields("root", self.root);
    fields("ready", self.ready);
    fields("embedding", self.embedding);
    fields("filesEmbedded", self.filesEmbedded);
    fields("chunksEmbedded", self.chunksEmbedded);
    fields("lexicalFiles", self.lexicalFiles);
    fields("ragEnabled", self.ragEnabled);
    fields("indexBytes", self.indexBytes);
  }
};

struct ModelStatus {
  ModelPhase phase = ModelPhase::absent;
  std::int64_t downloadedBytes = 0;
  std::int64_t totalBytes = 0;  ///< 0 while the size is not known
  std::optional<std::string> error;

  bool operator==(const ModelStatus&) const = default;

  template <typename Self, typename Fields>
  static void describe(Self& self, Fields& fields) {
    fields("phase", self.phase);
    fields("downloadedBytes", self.downloadedBytes);
    fields("totalBytes", self.totalBytes);
    fields("error", self.error);
  }
};

/// Why a request reaches outside a shared folder.
struct EscapeReason {
  std::string code;
  std::string detail;

  bool operator==(const EscapeReason&) const = default;

  template <typename Self, typename Fields>
  static void describe(Self& self, Fields& fields) {
    fields("code", self.code);
    fields("detail", self.detail);
  }
};

/// A request that reaches outside a shared folder and waits for the user.
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

  template <typename Self, typename Fields>
  static void describe(Self& self, Fields& fields) {
    fields("id", self.id);
    fields("kind", self.kind);
    fields("tool", self.tool);
    fields("target", self.target);
    fields("root", self.root);
    fields("reasons", self.reasons);
    fields("userName", self.userName);
    fields("chatTitle", self.chatTitle);
    fields("createdAt", self.createdAt);
  }
};

/// A permanent exception.
struct EscapeGrant {
  std::string path;
  std::string root;
  std::string kind;
  double grantedAt = 0;
  std::optional<std::string> grantedBy;

  bool operator==(const EscapeGrant&) const = default;

  template <typename Self, typename Fields>
  static void describe(Self& self, Fields& fields) {
    fields("path", self.path);
    fields("root", self.root);
    fields("kind", self.kind);
    fields("grantedAt", self.grantedAt);
    fields("grantedBy", self.grantedBy);
  }
};

/// What the agent is doing: one answer of its activity endpoint, or one event of its stream.
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

  template <typename Self, typename Fields>
  static void describe(Self& self, Fields& fields) {
    fields("busy", self.busy);
    fields("inFlight", self.inFlight);
    fields("counters", self.counters);
    fields("recent", self.recent);
    fields("indexing", self.indexing);
    fields("model", self.model);
    fields.orDefault("pendingApprovals", self.pendingApprovals);
    fields.orDefault("escapeGrants", self.escapeGrants);
  }
};

}  // namespace zephyl
