#pragma once

#include <optional>
#include <string>

#include <sys/types.h>

namespace zephyl {

/// Returns the process that holds the lock on base/tray.lock, or nullopt if none does. Looks the
/// lock up in the kernel's table instead of trying to take it, because an attempt could make a tray
/// that starts at the same moment believe that another one runs.
std::optional<pid_t> lockHolder(const std::string& baseDirectory);

/// The same from the contents of the lock file, its inode, and the text of /proc/locks. Pure.
std::optional<pid_t> lockHolder(const std::string& lockFile, ino_t inode, const std::string& locks);

}  // namespace zephyl
