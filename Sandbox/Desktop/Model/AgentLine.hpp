#pragma once

#include <optional>
#include <string>

#include "Desktop/Client/Records.hpp"

namespace zephyl::sandbox::desktop {

/// The state of the agent in one line.
struct AgentLine {
  enum class Mood { calm, busy, alarming };

  std::string text;
  Mood mood = Mood::calm;
  /// From 0 to 1; nullopt if there is no progress to show.
  std::optional<double> progress = {};

  bool operator==(const AgentLine&) const = default;
};

AgentLine agentLine(const Diagnostics& diagnostics);

}  // namespace zephyl::sandbox::desktop
