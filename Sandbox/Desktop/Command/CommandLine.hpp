#pragma once

#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Common/Program.hpp"

namespace zephyl::sandbox::desktop {

/// A command of the program.
struct Verb {
  std::string_view name;
  /// As printed in the help, separated by spaces.
  std::string_view operands;
  std::string_view help;
};

/// A parsed command line.
struct Invocation {
  std::string verb;
  std::vector<std::string> operands;
  /// Print the API's answer unchanged.
  bool json = false;
};

/// Parses the words after the program's name: a verb with exactly its operands. --json may be
/// anywhere, "--" ends the options, and --help has precedence.
Result<std::variant<Invocation, Notice>> readCommandLine(std::string_view program,
                                                         std::span<const Verb> verbs,
                                                         std::span<const char* const> words);

}  // namespace zephyl::sandbox::desktop
