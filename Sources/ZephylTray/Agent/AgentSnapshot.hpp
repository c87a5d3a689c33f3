#pragma once

#include <optional>
#include <vector>

#include "ZephylTray/Agent/AgentRecords.hpp"

namespace zephyl {

/// The result of a successful poll. `activity` is nullopt if only that request failed.
struct AgentPoll {
  AgentStatus status;
  std::vector<SharedRoot> roots;
  std::optional<Activity> activity;
};

/// The known state of the agent. While it is unreachable, `status` is nullopt and `roots` is empty.
struct AgentSnapshot {
  bool reachable = false;
  std::optional<AgentStatus> status;
  std::optional<Activity> activity;  ///< from the newest poll or event that had one
  std::vector<SharedRoot> roots;
};

}  // namespace zephyl
