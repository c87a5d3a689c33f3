#pragma once

#include <string>
#include <string_view>

#include "Common/Result.hpp"

namespace zephyl::sandbox {

/// Makes the directory, and those above it, where they are missing; a new one is for the user alone
/// (0700).
Result<void> makePrivateDirectory(const std::string& directory);

/// Writes a file that is private to the user (0600) and replaced atomically, so that a reader sees
/// the old or the new one, never half of one.
Result<void> replacePrivateFile(const std::string& path, std::string_view text);

/// Moves a file that cannot be understood out of the way. Returns where it is now.
std::string setAside(const std::string& path);

}  // namespace zephyl::sandbox
