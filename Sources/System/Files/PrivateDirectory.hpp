#pragma once

#include <string>

#include <sys/types.h>

#include "System/Data/Result.hpp"

namespace zephyl {

/// Directories in places where other users can create files, too. Symbolic links at `path` itself
/// are not followed. Callable from any thread.

/// Creates the directory `path` with mode 0700 unless it exists. Returns an error if `path` is not
/// a directory that belongs to this user and that nobody else can enter or write.
Result<void> claimPrivateDirectory(const std::string& path);

/// Returns whether `path` is a directory that belongs to this user.
bool isOwnDirectory(const std::string& path);

}  // namespace zephyl
