#pragma once

#include <string>

#include "System/Data/Result.hpp"

namespace zephyl {

/// What the program was called with.
struct CommandLine {
  enum class Mode { desktop, terminal, headless };

  Mode mode = Mode::desktop;
  /// Not empty: print this and end (`--help`, `--version`).
  std::string answer;

  /// The error says which argument is wrong.
  static Result<CommandLine> parse(int argc, const char* const* argv);
};

}  // namespace zephyl
