#pragma once

#include <functional>
#include <string>

#include "ZephylTray/Commands/Server/StatusReport.hpp"

namespace zephyl {

/// How the tray serves the commands of `zephyl-tray VERB`.
struct CommandSetup {
  /// The base directory whose lock this process holds. If empty, commands are not served.
  std::string baseDirectory;
  std::string mode;  ///< see `TrayFacts::mode`
  /// Determines whether a panel shows the icon. Called on a thread of the pool, where it may wait
  /// for the session bus. Null in modes without an icon.
  std::function<TrayHost()> findTrayHost;
};

}  // namespace zephyl
