#pragma once

#include "ZephylTray/Commands/Doctor/Finding.hpp"

namespace zephyl {

/// Checks everything that the tray depends on, in the order in which a user would look. Takes a few
/// seconds at most, and changes nothing.
Findings examineEnvironment();

/// A line for each finding, with what to do about it.
std::string findingsText(const Findings& findings);

/// Runs `zephyl-tray doctor` and returns the exit status: 0 if nothing is wrong, otherwise 1.
int runDoctor(bool asJSON);

}  // namespace zephyl
