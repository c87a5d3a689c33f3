#pragma once

#include "ZephylTray/Commands/Client/CommandArguments.hpp"

namespace zephyl {

/// Reads or changes the stored settings; returns the exit status. Works without a running tray.
///
/// `write` stores an integer if the value is one and the stored value, if there is one, is no text;
/// otherwise a text. `--integer` and `--string` decide it instead. An integer is replaced by a text
/// only with `--string`.
int runDefaults(const CommandArguments& arguments);

}  // namespace zephyl
