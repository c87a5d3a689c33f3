#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "Agent/Outcome.hpp"

namespace zephyl::sandbox {

/// How this run is to behave, from the command line first and the environment second.
struct Settings {
  /// 0 means any free port.
  unsigned short port = 0;
  std::string stateDirectory;
  /// What to share on the very first start.
  std::vector<std::string> firstFolders;
  /// The JSON list of servers to connect to, as handed over.
  std::string servers;
  /// Runs from the packaged runtime.
  bool standalone = false;

  double filesEmbeddedPerSecond = 0;
  double modelBytesPerSecond = 0;
  bool modelFails = false;
  std::string modelCacheDirectory;

  std::chrono::milliseconds connectInterval{};
  std::chrono::milliseconds streamKeepAlive{};

  /// Ends by itself after so long, with `exitStatus`; zero is at once, before anything is served.
  std::optional<std::chrono::milliseconds> exitAfter;
  int exitStatus = 1;
};

/// A text to print instead of running.
struct Notice {
  std::string text;
};

/// A misuse of the command line or the environment is a failure that says what is wrong.
Outcome<std::variant<Settings, Notice>> readSettings(int argc, const char* const* argv);

}  // namespace zephyl::sandbox
