#pragma once

#include "ZephylTray/Commands/Doctor/Finding.hpp"

namespace zephyl {

/// Checks the installation and the programs that the tray runs.
Findings checkPrograms(bool hasDisplay);

}  // namespace zephyl
