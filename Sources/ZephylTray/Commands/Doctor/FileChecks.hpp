#pragma once

#include <string>

#include "ZephylTray/Commands/Doctor/Finding.hpp"

namespace zephyl {

/// Whether a directory belongs to this user, can be written, and cannot be written by others. One
/// that does not exist is fine: the tray makes it.
Finding checkDirectory(const std::string& check, const std::string& path);
/// Whether the registry at `path` can be read.
Finding checkRegistry(const std::string& path);
/// Whether the stored settings can be read and have the types that they should have.
Finding checkSettings();

/// The directories and files of the user that the tray uses.
Findings checkFiles();

}  // namespace zephyl
