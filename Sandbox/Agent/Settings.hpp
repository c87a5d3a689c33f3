#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "Common/Ending.hpp"
#include "Common/Program.hpp"

namespace zephyl::sandbox {

/// How this run is to behave, from the command line first and the environment second.
struct Settings {
  /// 0 is any free port.
  unsigned short port = 0;
  std::string stateDirectory;
  /// What to share on the very first start.
  std::vector<std::string> firstFolders;
  /// The JSON list of servers to connect to, as handed over.
  std::string servers;
  /// Whether the agent runs from the packaged runtime.
  bool standalone = false;

  double filesEmbeddedPerSecond = 0;
  double modelBytesPerSecond = 0;
  bool modelFails = false;
  std::string modelCacheDirectory;

  std::chrono::milliseconds connectInterval{};
  std::chrono::milliseconds streamKeepAlive{};

  /// An exit after no time at all happens before anything is served.
  Misbehavior misbehavior;
};

/// The agent's name, options and help.
extern const Program agentProgram;

/// An invalid value in the command line or the environment is an error.
Result<Settings> readSettings(SettingsReader reader);

}  // namespace zephyl::sandbox
