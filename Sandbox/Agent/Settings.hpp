#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "Common/Ending.hpp"
#include "Common/Program.hpp"

namespace zephyl::sandbox {

/// The settings of a run. The command line overrides the environment.
struct Settings {
  /// 0 means any free port.
  unsigned short port = 0;
  std::string stateDirectory;
  /// The folders to share on the first start.
  std::vector<std::string> firstFolders;
  /// The JSON list of servers to connect to, as received.
  std::string servers;
  /// Whether the agent runs from the packaged runtime.
  bool standalone = false;

  double filesEmbeddedPerSecond = 0;
  double modelBytesPerSecond = 0;
  bool modelFails = false;
  std::string modelCacheDirectory;

  std::chrono::milliseconds connectInterval{};
  std::chrono::milliseconds streamKeepAlive{};

  /// An exit after zero seconds happens before anything is served.
  Misbehavior misbehavior;
};

/// The agent's name, options and help.
extern const Program agentProgram;

/// Fails for an invalid value in the command line or the environment.
Result<Settings> readSettings(SettingsReader reader);

}  // namespace zephyl::sandbox
