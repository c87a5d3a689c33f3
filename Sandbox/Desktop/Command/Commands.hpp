#pragma once

#include <span>
#include <string_view>

namespace zephyl::sandbox::desktop {

/// Does what the words after the program's name ask for, prints the answer, and gives the exit
/// status: 0, 1 when it could not be done, 2 when the words make no sense.
int runCommand(std::string_view program, std::span<const char* const> words);

}  // namespace zephyl::sandbox::desktop
