#pragma once

#include <chrono>
#include <string>
#include <vector>

#include <sys/types.h>

#include "System/FileDescriptor.hpp"
#include "System/Result.hpp"

namespace zephyl {

/// Whether a program can be started on this machine at all: it is run with "--version", and must
/// end well within ten seconds.
Result<void> checkItStarts(const std::string& executable);

/// A process that is not a child, followed so that no other with its id is ever taken for it.
class WatchedProcess {
 public:
  explicit WatchedProcess(pid_t pid);

  /// Waits at most `limit` for its end; whether it has ended.
  [[nodiscard]] bool waitForEnd(std::chrono::milliseconds limit) const;
  /// SIGTERM, and SIGKILL when that does not help; waits for the end.
  void end() const;

 private:
  FileDescriptor process_;
};

/// Whether the new version at `prefix` reports itself up, by removing the note that it is on
/// trial, before `process` ends and within `limit`.
bool comesUp(const std::string& prefix, const WatchedProcess& process, std::chrono::seconds limit);

/// Becomes the program: this process goes on as it, with all signals as they are at the start.
/// Returns only when that fails.
Error becomeProgram(const std::string& executable, const std::vector<std::string>& arguments);

}  // namespace zephyl
