#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Helpers/Updates/Client/UpdateSchedule.hpp"

namespace zephyl {

/// The facts about the program that is updated.
struct UpdateSetup {
  std::string program;                 ///< the path of zephyl-tray-updater
  std::string prefix;                  ///< the installation: the directory above bin
  std::string version;                 ///< the running version, for comparison
  std::vector<std::string> arguments;  ///< the tray's arguments, for the next version
  /// Ends the tray in order and executes the program that is then installed.
  std::function<void()> relaunch;
  std::function<double()> random;  ///< in [0, 1)
  UpdateSettings settings;
};

}  // namespace zephyl
