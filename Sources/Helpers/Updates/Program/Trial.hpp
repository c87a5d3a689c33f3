#pragma once

#include <chrono>
#include <string>
#include <vector>

#include <sys/types.h>

#include "System/Data/Result.hpp"
#include "System/Files/FileDescriptor.hpp"

namespace zephyl {

/// Fails unless a program starts on this machine: it is run with "--version" and must succeed
/// within ten seconds.
Result<void> checkItStarts(const std::string& executable);

/// A process that is not a child. It is identified by a pidfd, so its id cannot be confused with
/// that of another process.
class WatchedProcess {
 public:
  explicit WatchedProcess(pid_t pid);

  [[nodiscard]] pid_t id() const { return id_; }

  /// Waits for its end for at most `limit`. Returns whether it has ended.
  [[nodiscard]] bool waitForEnd(std::chrono::milliseconds limit) const;
  /// Sends SIGTERM, and later SIGKILL if necessary. Waits for the end.
  void end() const;

 private:
  const pid_t id_;
  FileDescriptor process_;
};

/// How the trial of an unconfirmed version has ended.
enum class TrialOutcome {
  confirmed,  ///< the new version has removed trial.json
  suspended,  ///< the process was asked to end; the trial continues at the next start
  failed,     ///< the process has ended for another reason, or `limit` has passed
};

/// Waits for at most `limit` until the unconfirmed version at `prefix` is confirmed or has failed.
/// `process` executes that version or is about to execute it.
TrialOutcome outcomeOfTrial(const std::string& prefix, const WatchedProcess& process,
                            std::chrono::seconds limit);

/// Executes the program in this process, with unchanged signal handling. Returns only on failure.
Error becomeProgram(const std::string& executable, const std::vector<std::string>& arguments);

}  // namespace zephyl
