#pragma once

#include <string>

#include "System/Data/Result.hpp"

namespace zephyl {

/// The parsed command line.
struct CommandLine {
  enum class Mode { desktop, terminal, headless };

  Mode mode = Mode::desktop;
  /// If not empty, the program must print this text and end (`--help`, `--version`).
  std::string answer;

  /// The error names the wrong argument.
  static Result<CommandLine> parse(int argc, const char* const* argv);
};

}  // namespace zephyl
