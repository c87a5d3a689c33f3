#pragma once

#include <span>
#include <string_view>

namespace zephyl::sandbox::desktop {

/// Runs the command in the words after the program's name and prints its answer. Returns the exit
/// status: 0, 1 if it failed, 2 if the words are not a command.
int runCommand(std::string_view program, std::span<const char* const> words);

}  // namespace zephyl::sandbox::desktop
