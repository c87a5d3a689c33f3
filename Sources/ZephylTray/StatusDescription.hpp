#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ZephylTray/AgentRecords.hpp"

namespace zephyl {

/// What the last poll and the event stream told about the agent.
struct AgentView {
  bool reachable = false;
  std::optional<AgentStatus> status;
  std::optional<Activity> activity;
  std::vector<SharedRoot> roots;
};

/// How many servers are to be connected, and how many can be used.
struct TailnetSummary {
  std::size_t tailnets = 0;
  std::size_t usable = 0;
};

/// The state in words, such as "reachable, 3 folders, indexing 42/120, 1 of 2 servers connected".
/// Pure.
std::string describe(const AgentView& view, const TailnetSummary& tailnets);

/// How far a download is: whole percent while the size is known, else the bytes so far as a file
/// size ("12.3 MB"). Pure.
std::string downloadProgress(const ModelStatus& model);

}  // namespace zephyl
