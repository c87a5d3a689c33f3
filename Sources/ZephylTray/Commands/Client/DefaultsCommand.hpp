#pragma once

#include "ZephylTray/Commands/Protocol/CommandArguments.hpp"

namespace zephyl {

/// Reads or changes the stored settings. Returns the exit status. Does not require a running tray.
///
/// `write` stores an integer if the value is an integer and the stored value is not a string,
/// otherwise a string. `--integer` and `--string` select the type explicitly. An integer is
/// replaced by a string only with `--string`.
int runDefaults(const CommandArguments& arguments);

}  // namespace zephyl
