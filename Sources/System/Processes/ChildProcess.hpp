#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

#include "System/Concurrency/Clock.hpp"
#include "System/Data/LineReader.hpp"
#include "System/Data/Result.hpp"
#include "System/Data/Secret.hpp"
#include "System/Files/Environment.hpp"

namespace zephyl {

/// How a child ended.
struct ExitStatus {
  enum class Reason { exited, signalled };
  Reason reason = Reason::exited;
  int status = 0;  ///< the exit status, or the number of the signal

  [[nodiscard]] bool isFailure() const { return reason == Reason::exited && status != 0; }
  bool operator==(const ExitStatus&) const = default;
};

/// Whole lines of a child's output, without their ends. Movable only. While a batch is alive, its
/// size counts against the child's allowance. A child that has exhausted its allowance is not read
/// from, so a queue of batches stays bounded. The lines may hold a secret and are overwritten in
/// the destructor.
class OutputLines {
 public:
  OutputLines(std::vector<std::string> lines, std::shared_ptr<void> credit)
      : lines_(std::move(lines)), credit_(std::move(credit)) {}
  ~OutputLines() {
    for (auto& line : lines_) wipe(line);
  }
  OutputLines(OutputLines&&) = default;
  OutputLines& operator=(OutputLines&& other) noexcept {
    lines_.swap(other.lines_);  // `other` overwrites the previous lines
    credit_.swap(other.credit_);
    return *this;
  }
  OutputLines(const OutputLines&) = delete;
  OutputLines& operator=(const OutputLines&) = delete;

  [[nodiscard]] const std::vector<std::string>& lines() const { return lines_; }

 private:
  std::vector<std::string> lines_;
  std::shared_ptr<void> credit_;  // released in the destructor
};

/// Which program to run, and how.
struct ProcessOptions {
  std::string executable;  ///< an absolute path, or one relative to the working directory
  std::vector<std::string> arguments;  ///< without the program's own name
  Environment environment;             ///< complete: nothing is inherited
  std::string workingDirectory;        ///< empty: that of the tray

  /// Whether the child lives only as long as the tray. When the tray ends or is killed, a tied
  /// child and its process group, which it leads, are sent SIGTERM and later SIGKILL, grandchildren
  /// included. An independent child outlives the tray.
  enum class Lifetime { tied, independent };
  Lifetime lifetime = Lifetime::tied;

  /// Whether `ChildProcess::write` reaches the child's standard input. Otherwise it is /dev/null.
  bool hasInput = false;
  /// Longer lines of output are cut at this size, in bytes.
  std::size_t maxLineBytes = LineReader::maxLineBytes;
  /// Called with output when it is read, standard output and error together. If unset, the child
  /// inherits the tray's standard output and error.
  std::function<void(OutputLines)> onOutput;
  /// Called with the lines of standard error, if set. `onOutput` then receives standard output
  /// only.
  std::function<void(OutputLines)> onErrorOutput;
  /// Called once, after the last output, when the child has ended and was reaped.
  std::function<void(ExitStatus)> onExit;
};

/// A child that was started. Callable from any thread. A signal never reaches another process that
/// reuses the id. Destroying the handle neither ends the child nor removes its callbacks.
class ChildProcess {
 public:
  /// The time in which a child's process group must end after the first request.
  static constexpr Duration terminationGrace = std::chrono::seconds(3);

  virtual ~ChildProcess() = default;
  ChildProcess() = default;
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  [[nodiscard]] virtual pid_t pid() const = 0;
  /// Returns false after the child has ended, before `onExit` is called. If a tied child was asked
  /// to end, it counts as ended when its whole process group has ended: the group is sent SIGTERM
  /// when the child itself ends, and SIGKILL after `terminationGrace`. If a child ends without a
  /// request, its group is killed at once.
  [[nodiscard]] virtual bool isRunning() const = 0;

  /// Sends SIGTERM to the child alone.
  virtual void terminate() = 0;
  /// Sends SIGTERM to the child's whole process group.
  virtual void terminateGroup() = 0;
  /// Sends SIGKILL to the child's whole process group.
  virtual void killGroup() = 0;
  /// Waits for the end of the child for at most `limit` of real time. Returns whether it has ended.
  /// Must not be called from a callback, a task of the main loop or a thread of the pool (see
  /// NoChildWaits). Only the shutdown waits.
  [[nodiscard]] virtual bool waitForExit(Duration limit) = 0;

  /// Sends a line, given without its end, to a child that has input. Returns at once. Unread input
  /// waits in memory and is dropped when the child ends.
  virtual void write(std::string_view line) = 0;
  /// Closes the child's input after all that was written.
  virtual void closeInput() = 0;
};

/// Starts children. The only interface between the supervisors and the system's processes. Tests
/// substitute it.
class ProcessLauncher {
 public:
  virtual ~ProcessLauncher() = default;
  ProcessLauncher() = default;
  ProcessLauncher(const ProcessLauncher&) = delete;
  ProcessLauncher& operator=(const ProcessLauncher&) = delete;

  /// Starts a child. When it returns successfully, the child runs the new program. Otherwise
  /// returns the reason ("<executable>: No such file or directory"). Callbacks are called on the
  /// reactor's thread, possibly before this returns, and must be short.
  [[nodiscard]] virtual Result<std::shared_ptr<ChildProcess>> launch(ProcessOptions options) = 0;
};

}  // namespace zephyl
