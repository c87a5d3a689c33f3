#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <sys/types.h>

#include "ZephylTray/Commands/Doctor/Finding.hpp"
#include "ZephylTray/Commands/Protocol/CommandRecords.hpp"

namespace zephyl {

/// The tray of this user's base directory, if it is running.
struct RunningTray {
  std::optional<pid_t> process;         ///< the process that holds the lock
  std::optional<CommandStatus> status;  ///< nullopt if it does not answer
};

/// Requests the tray's status. Waits for 2 s at most.
RunningTray findRunningTray();

/// Checks that the tray is running and answers, and reports what needs attention. Pure.
Findings checkTray(const RunningTray& tray);

/// The listener on a port of the tray.
struct PortFacts {
  std::string check;
  std::string setting;  ///< the stored setting that changes the port
  std::int64_t port = 0;
  std::optional<uid_t> owner;  ///< nullopt if no program listens
  bool isOfTheTray = false;    ///< whether the running tray listens there
};

/// Checks a port. Pure.
Finding checkPort(const PortFacts& facts, bool trayRuns, uid_t user);

/// Checks the ports of the agent and of the control API.
Findings checkPorts(bool trayRuns);

}  // namespace zephyl
