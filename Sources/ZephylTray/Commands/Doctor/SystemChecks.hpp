#pragma once

#include <chrono>
#include <cstdint>

#include "ZephylTray/Commands/Doctor/Finding.hpp"

namespace zephyl {

using CalendarTime = std::chrono::system_clock::time_point;

/// Reports a clock that is behind the time of the program's installation. Pure.
Finding checkClock(CalendarTime now, CalendarTime installed);
/// Checks that a limit of descriptors suffices for the tray, its children and their connections.
/// Pure.
Finding checkDescriptorLimit(std::uint64_t limit);

/// Checks the clock and the limits of this system.
Findings checkSystem();

}  // namespace zephyl
