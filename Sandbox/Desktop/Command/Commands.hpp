#pragma once

#include <span>
#include <string_view>

namespace zephyl::sandbox::desktop {

/// Runs the command that the words after the program's name ask for and prints its answer. Returns
/// the exit status: 0, 1 when it failed, 2 when the words are not a command.
int runCommand(std::string_view program, std::span<const char* const> words);

}  // namespace zephyl::sandbox::desktop
