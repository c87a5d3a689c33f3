#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace zephyl {

/// Writes `text` to a new file in the temporary directory that only this user can read, and returns
/// its path. The name contains `now`. A link of that name is replaced and not followed. Returns
/// nullopt if the file cannot be written.
std::optional<std::string> writeLogFile(const std::string& text,
                                        std::chrono::system_clock::time_point now);

}  // namespace zephyl
