#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <boost/describe/class.hpp>

#include "System/Data/JSON.hpp"

/// The answers of the tray's control API, reduced to the fields that a window shows.
namespace zephyl::sandbox::desktop {

struct TrayStatus {
  bool available = false;
  bool enrolled = false;
  bool running = false;
  std::optional<std::string> url;
  std::optional<std::string> relay;
  /// A screen that the window should show.
  std::optional<std::string> request;
};
BOOST_DESCRIBE_STRUCT(TrayStatus, (), (available, enrolled, running, url, relay, request))

struct ServerEntry {
  std::string id;
  std::string name;
  std::string accent;
  bool enabled = false;
  bool usesTailnet = false;
  bool running = false;
  bool enrolled = false;
  std::optional<std::string> webUrl;
  std::optional<std::string> boundAddress;
  std::optional<std::string> relay;
  std::optional<std::string> enrolError;
  std::optional<std::string> tailnetStalled;
  std::optional<std::string> agentError;
  std::optional<std::string> addressUnresolved;
};
BOOST_DESCRIBE_STRUCT(ServerEntry, (),
                      (id, name, accent, enabled, usesTailnet, running, enrolled, webUrl,
                       boundAddress, relay, enrolError, tailnetStalled, agentError,
                       addressUnresolved))

struct ServerList {
  std::vector<ServerEntry> servers;
};
BOOST_DESCRIBE_STRUCT(ServerList, (), (servers))

struct FolderEntry {
  std::string root;
  std::string name;
  /// The ids of servers. If absent or empty, the folder is shared with every server.
  std::optional<std::vector<std::string>> servers;
};
BOOST_DESCRIBE_STRUCT(FolderEntry, (), (root, name, servers))

struct FolderList {
  std::vector<FolderEntry> roots;
};
BOOST_DESCRIBE_STRUCT(FolderList, (), (roots))

struct AgentEntry {
  bool reachable = false;
  bool running = false;
  std::optional<std::string> state;
};
BOOST_DESCRIBE_STRUCT(AgentEntry, (), (reachable, running, state))

/// The progress of the index of one shared folder.
struct IndexEntry {
  bool ready = false;
  bool embedding = false;
  std::int64_t filesEmbedded = 0;
  std::int64_t lexicalFiles = 0;
};
BOOST_DESCRIBE_STRUCT(IndexEntry, (), (ready, embedding, filesEmbedded, lexicalFiles))

struct ModelEntry {
  std::string phase;
  std::int64_t downloadedBytes = 0;
  std::int64_t totalBytes = 0;  ///< 0 if the size is unknown
};
BOOST_DESCRIBE_STRUCT(ModelEntry, (), (phase, downloadedBytes, totalBytes))

/// The fields of GET /diagnostics that a window shows.
struct Diagnostics {
  AgentEntry agent;
  std::vector<IndexEntry> indexing;
  ModelEntry model;
};
BOOST_DESCRIBE_STRUCT(Diagnostics, (), (agent, indexing, model))

}  // namespace zephyl::sandbox::desktop
