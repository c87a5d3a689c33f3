#pragma once

#include "ZephylTray/Commands/Doctor/Finding.hpp"

namespace zephyl {

/// Checks everything that the tray depends on, in the order in which a user would check it. Takes
/// at most a few seconds and changes nothing.
Findings examineEnvironment();

/// Returns a line for each finding, with advice.
std::string findingsText(const Findings& findings);

/// Runs `zephyl-tray doctor` and returns the exit status: 0 if nothing is wrong, otherwise 1.
int runDoctor(bool asJSON);

}  // namespace zephyl
