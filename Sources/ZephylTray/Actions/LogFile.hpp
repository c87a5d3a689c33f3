#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace zephyl {

/// Writes `text` to a file of its own in the temporary directory, which only this user can read,
/// and returns its path. The name holds `now`. A link of that name is replaced, not followed.
/// Returns nullopt if the file cannot be written.
std::optional<std::string> writeLogFile(const std::string& text,
                                        std::chrono::system_clock::time_point now);

}  // namespace zephyl
