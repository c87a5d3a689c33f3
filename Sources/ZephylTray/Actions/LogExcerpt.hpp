#pragma once

#include <string>
#include <vector>

namespace zephyl {

/// Returns the text of a log window: the whole of a short log, or the beginning and the end of a
/// longer one. The beginning shows what was started. Control characters are made visible. Pure.
std::string logExcerpt(const std::vector<std::string>& lines);

}  // namespace zephyl
