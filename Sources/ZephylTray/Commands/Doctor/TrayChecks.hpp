#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <sys/types.h>

#include "ZephylTray/Commands/Doctor/Finding.hpp"
#include "ZephylTray/Commands/Protocol/CommandRecords.hpp"

namespace zephyl {

/// The tray of this user's base directory, if it runs.
struct RunningTray {
  std::optional<pid_t> process;         ///< that holds the lock
  std::optional<CommandStatus> status;  ///< nullopt if it does not answer
};

/// Asks the tray for its status. Waits for 2 s at most.
RunningTray findRunningTray();

/// Whether the tray runs and answers, and what needs attention there. Pure.
Findings checkTray(const RunningTray& tray);

/// Who listens on a port of the tray.
struct PortFacts {
  std::string check;
  std::string setting;  ///< the stored setting that changes the port
  std::int64_t port = 0;
  std::optional<uid_t> owner;  ///< nullopt: nobody
  bool isOfTheTray = false;    ///< the tray itself listens there, while it runs
};

/// Pure.
Finding checkPort(const PortFacts& facts, bool trayRuns, uid_t user);

/// The ports of the agent and of the control API.
Findings checkPorts(bool trayRuns);

}  // namespace zephyl
