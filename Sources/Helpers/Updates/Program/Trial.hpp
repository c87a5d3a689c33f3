#pragma once

#include <chrono>
#include <string>
#include <vector>

#include <sys/types.h>

#include "System/Data/Result.hpp"
#include "System/Files/FileDescriptor.hpp"

namespace zephyl {

/// Whether a program can be started on this machine at all: it is run with "--version", and must
/// end well within ten seconds.
Result<void> checkItStarts(const std::string& executable);

/// A process that is not a child, followed so that no other with its id is ever taken for it.
class WatchedProcess {
 public:
  explicit WatchedProcess(pid_t pid);

  [[nodiscard]] pid_t id() const { return id_; }

  /// Waits at most `limit` for its end; whether it has ended.
  [[nodiscard]] bool waitForEnd(std::chrono::milliseconds limit) const;
  /// SIGTERM, and SIGKILL when that does not help; waits for the end.
  void end() const;

 private:
  const pid_t id_;
  FileDescriptor process_;
};

enum class TrialOutcome {
  confirmed,  ///< the new version has removed trial.json
  suspended,  ///< the process was asked to end; the trial goes on at the next start
  failed,     ///< the process has ended otherwise, or `limit` has passed
};

/// Waits, for `limit` at most, until the unconfirmed version at `prefix`, which `process` executes
/// or is about to execute, is confirmed or has failed.
TrialOutcome outcomeOfTrial(const std::string& prefix, const WatchedProcess& process,
                            std::chrono::seconds limit);

/// Becomes the program: this process goes on as it, with all signals as they are at the start.
/// Returns only when that fails.
Error becomeProgram(const std::string& executable, const std::vector<std::string>& arguments);

}  // namespace zephyl
