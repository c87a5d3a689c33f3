#pragma once

#include <optional>
#include <string>

#include <sys/types.h>

namespace zephyl {

/// Returns the process that holds the lock on base/tray.lock, or nullopt. Reads the kernel's table
/// of locks instead of trying to acquire the lock, because an attempt could make a tray that starts
/// at the same moment believe that another one is running.
std::optional<pid_t> lockHolder(const std::string& baseDirectory);

/// Does the same with the contents of the lock file, its inode and the text of /proc/locks. Pure.
std::optional<pid_t> lockHolder(const std::string& lockFile, ino_t inode, const std::string& locks);

}  // namespace zephyl
