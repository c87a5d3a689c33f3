#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace zephyl {

/// The result of a program.
struct ProgramRun {
  int status = -1;     ///< exit status; -1 if it could not be run or was killed
  std::string output;  ///< standard output, at most 4 KiB, without the newline at the end
};

/// Runs a program from PATH and waits for it. Kills it after `limit`. Drops its standard error. For
/// processes without other threads.
ProgramRun runProgram(const std::vector<std::string>& command, std::chrono::milliseconds limit);

}  // namespace zephyl
