#pragma once

#include <string>
#include <string_view>

namespace zephyl::sandbox {

/// The text with its control characters made visible, so that no value can begin a line of its own
/// or speak to a terminal.
std::string printable(std::string_view text);

}  // namespace zephyl::sandbox
