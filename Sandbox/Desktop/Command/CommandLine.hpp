#pragma once

#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Common/Result.hpp"

namespace zephyl::sandbox::desktop {

/// One word of the program's language: what it is called, what it needs, what it does.
struct Verb {
  std::string_view name;
  /// As in the help, separated by spaces.
  std::string_view operands;
  std::string_view help;
};

/// What the user wants done.
struct Invocation {
  std::string verb;
  std::vector<std::string> operands;
  /// Print the API's answer as it is.
  bool json = false;
};

/// A text to print instead of running.
struct Notice {
  std::string text;
};

/// Reads the words after the program's name: a verb with exactly its operands; --json may stand
/// anywhere, "--" ends the options, --help goes before all else. A failure says what is wrong.
Result<std::variant<Invocation, Notice>> readCommandLine(std::string_view program,
                                                         std::span<const Verb> verbs,
                                                         std::span<const char* const> words);

}  // namespace zephyl::sandbox::desktop
