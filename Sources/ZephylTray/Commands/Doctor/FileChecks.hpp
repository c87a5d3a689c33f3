#pragma once

#include <string>

#include "ZephylTray/Commands/Doctor/Finding.hpp"

namespace zephyl {

/// Checks that a directory belongs to this user, is writable, and is not writable for others. A
/// directory that does not exist is not a problem, because the tray creates it.
Finding checkDirectory(const std::string& check, const std::string& path);
/// Checks that the registry at `path` can be decoded.
Finding checkRegistry(const std::string& path);
/// Checks that the disk of `path`, which may not exist yet, has enough free space for changes.
Finding checkSpace(const std::string& path);
/// Checks that the stored settings can be decoded and have the right types.
Finding checkSettings();

/// Checks the user's directories and files that the tray uses.
Findings checkFiles();

}  // namespace zephyl
