#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace zephyl {

/// What a program has answered.
struct ProgramRun {
  int status = -1;     ///< its exit status; -1 if it could not be run, was killed or took too long
  std::string output;  ///< of its standard output, 4 KiB at most, without the newline at the end
};

/// Runs a program, which is found by PATH, and waits for it; one that takes longer than `limit` is
/// killed. Its standard error is dropped. For commands, which have no other threads.
ProgramRun runProgram(const std::vector<std::string>& command, std::chrono::milliseconds limit);

}  // namespace zephyl
