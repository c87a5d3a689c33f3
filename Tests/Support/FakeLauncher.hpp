#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "System/Processes/ChildProcess.hpp"

namespace zephyl::test {

/// A child that the test controls. Signals end it like a real child, unless it ignores SIGTERM.
class FakeChild final : public ChildProcess {
 public:
  FakeChild(pid_t pid, ProcessOptions options) : pid_(pid), options_(std::move(options)) {}

  [[nodiscard]] pid_t pid() const override { return pid_; }
  [[nodiscard]] bool isRunning() const override;
  void terminate() override;
  void terminateGroup() override { terminate(); }
  void killGroup() override;
  [[nodiscard]] bool waitForExit(Duration) override { return !isRunning(); }
  void write(std::string_view line) override;
  void closeInput() override;

  [[nodiscard]] const ProcessOptions& options() const { return options_; }
  [[nodiscard]] int terminateRequests() const;
  void ignoreTermination() { ignoresTermination_ = true; }
  void print(std::vector<std::string> lines);
  void printError(std::vector<std::string> lines);
  /// The lines written to its input, and whether the input was closed.
  [[nodiscard]] std::vector<std::string> input() const;
  [[nodiscard]] bool inputEnded() const;
  /// Ends the child without a signal.
  void exit(ExitStatus status);

 private:
  const pid_t pid_;
  const ProcessOptions options_;
  mutable std::mutex mutex_;
  bool running_ = true;
  bool ignoresTermination_ = false;
  int terminateRequests_ = 0;
  std::vector<std::string> input_;
  bool inputEnded_ = false;
};

/// A launcher of fake children.
class FakeLauncher final : public ProcessLauncher {
 public:
  [[nodiscard]] Result<std::shared_ptr<ChildProcess>> launch(ProcessOptions options) override;

  /// Makes later launches fail with this reason; nullopt makes them succeed again.
  void failWith(std::optional<std::string> reason);
  [[nodiscard]] std::vector<std::shared_ptr<FakeChild>> children() const;
  [[nodiscard]] std::shared_ptr<FakeChild> newest() const { return children().back(); }

 private:
  mutable std::mutex mutex_;
  std::vector<std::shared_ptr<FakeChild>> children_;
  std::optional<std::string> failure_;
};

}  // namespace zephyl::test
