#pragma once

#include <chrono>
#include <cstdint>

#include "ZephylTray/Commands/Doctor/Finding.hpp"

namespace zephyl {

using CalendarTime = std::chrono::system_clock::time_point;

/// A clock that is behind the time at which the program was installed is wrong. Pure.
Finding checkClock(CalendarTime now, CalendarTime installed);
/// Whether the tray, its children and their connections get by with this many descriptors. Pure.
Finding checkDescriptorLimit(std::uint64_t limit);

/// The clock and the limits of this system.
Findings checkSystem();

}  // namespace zephyl
