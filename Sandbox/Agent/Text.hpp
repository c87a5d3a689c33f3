#pragma once

#include <string>
#include <string_view>

namespace zephyl::sandbox {

bool isUtf8(std::string_view text);

/// The text with every byte that is not valid UTF-8 replaced by U+FFFD: file names may hold any
/// bytes, JSON may not.
std::string toUtf8(std::string_view text);

/// "1 file", "2 files".
std::string counted(long long count, std::string_view noun);

}  // namespace zephyl::sandbox
