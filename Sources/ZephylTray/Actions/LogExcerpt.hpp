#pragma once

#include <string>
#include <vector>

namespace zephyl {

/// What a log window shows of a log: all of a short one, of a longer one the beginning, where it
/// says what was started, and the end. Control characters are made visible. Pure.
std::string logExcerpt(const std::vector<std::string>& lines);

}  // namespace zephyl
