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

/// Whole lines of a child's output, without their ends. While a batch is alive its size counts
/// against the child's allowance, and a child that has used it up is not read from, so that
/// a queue of batches stays bounded. The lines, which may hold a secret, are overwritten when
/// the batch goes. Movable only.
class OutputLines {
 public:
  OutputLines(std::vector<std::string> lines, std::shared_ptr<void> credit)
      : lines_(std::move(lines)), credit_(std::move(credit)) {}
  ~OutputLines() {
    for (auto& line : lines_) wipe(line);
  }
  OutputLines(OutputLines&&) = default;
  OutputLines& operator=(OutputLines&& other) noexcept {
    lines_.swap(other.lines_);  // which overwrites those of this
    credit_.swap(other.credit_);
    return *this;
  }
  OutputLines(const OutputLines&) = delete;
  OutputLines& operator=(const OutputLines&) = delete;

  [[nodiscard]] const std::vector<std::string>& lines() const { return lines_; }

 private:
  std::vector<std::string> lines_;
  std::shared_ptr<void> credit_;  // given back when it goes
};

/// What to run, and how.
struct ProcessOptions {
  std::string executable;  ///< an absolute path, or one relative to the working directory
  std::vector<std::string> arguments;  ///< without the program's own name
  Environment environment;             ///< the whole of it
  std::string workingDirectory;        ///< empty: the tray's own

  /// Whether the child lives only as long as the tray. Such a child is asked to end when the tray
  /// dies, whatever the cause, and its process group (it leads one of its own) is ended with it,
  /// grandchildren included. Any other child outlives the tray.
  enum class Lifetime { tied, independent };
  Lifetime lifetime = Lifetime::tied;

  /// Whether `ChildProcess::write` reaches the child's standard input, which is /dev/null
  /// otherwise.
  bool hasInput = false;
  /// A longer line of output is cut, and its rest dropped.
  std::size_t maxLineBytes = LineReader::maxLineBytes;
  /// Called with output as it comes, standard output and error together. Unset: the child's
  /// output goes where the tray's own goes.
  std::function<void(OutputLines)> onOutput;
  /// Called with the lines of standard error, if they are to be separated from standard output.
  std::function<void(OutputLines)> onErrorOutput;
  /// Called once, after the last output, when the child has ended and been reaped.
  std::function<void(ExitStatus)> onExit;
};

/// A child that was started. Operations may be called from any thread; a signal never reaches
/// another process that got the same id. Destroying the handle leaves the child running and its
/// callbacks in force.
class ChildProcess {
 public:
  /// How long the process group of a child has to end, from the first request on.
  static constexpr Duration terminationGrace = std::chrono::seconds(3);

  virtual ~ChildProcess() = default;
  ChildProcess() = default;
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  [[nodiscard]] virtual pid_t pid() const = 0;
  /// False as soon as the child has been seen to end, before `onExit` is called. A tied child that
  /// was asked to end has ended when its whole process group has, which is sent SIGTERM once the
  /// child itself has gone; what is left of the group after `terminationGrace` is killed. After an
  /// end without a request the group is killed at once.
  [[nodiscard]] virtual bool isRunning() const = 0;

  /// SIGTERM to the child alone.
  virtual void terminate() = 0;
  /// SIGTERM to the child's whole process group.
  virtual void terminateGroup() = 0;
  /// SIGKILL to the child's whole process group.
  virtual void killGroup() = 0;
  /// Waits until the child has ended, for at most `limit` of real time, and returns whether it has.
  /// Must not be called from a callback, from a task of the main loop or from a thread of the pool
  /// (see NoChildWaits): the shutdown alone waits.
  [[nodiscard]] virtual bool waitForExit(Duration limit) = 0;

  /// Sends a line, without its end, to a child that has input. Returns at once: what the child
  /// has not read yet waits in memory, and what it never reads is dropped when it ends.
  virtual void write(std::string_view line) = 0;
  /// Ends the child's input behind what was written so far.
  virtual void closeInput() = 0;
};

/// Starts children. The one seam between the supervisors and the system: tests put a launcher of
/// their own here.
class ProcessLauncher {
 public:
  virtual ~ProcessLauncher() = default;
  ProcessLauncher() = default;
  ProcessLauncher(const ProcessLauncher&) = delete;
  ProcessLauncher& operator=(const ProcessLauncher&) = delete;

  /// Starts a child, or says why not ("<executable>: No such file or directory"). When it
  /// returns, the child runs the new program. Callbacks come on the reactor's thread, possibly
  /// before this returns; they must be short.
  [[nodiscard]] virtual Result<std::shared_ptr<ChildProcess>> launch(ProcessOptions options) = 0;
};

}  // namespace zephyl
