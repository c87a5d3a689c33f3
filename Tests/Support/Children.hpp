#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "System/Processes/ChildProcess.hpp"

namespace zephyl::test {

/// Records the output and the end of a child.
class ChildWitness {
 public:
  void attachTo(ProcessOptions& options) {
    options.onOutput = [this](const OutputLines& batch) {
      const std::scoped_lock lock(mutex_);
      lines_.insert(lines_.end(), batch.lines().begin(), batch.lines().end());
      changed_.notify_all();
    };
    options.onExit = [this](ExitStatus status) {
      const std::scoped_lock lock(mutex_);
      ++exits_;
      status_ = status;
      linesAtExit_ = lines_.size();
      changed_.notify_all();
    };
  }

  /// Waits for `count` lines and returns them.
  std::vector<std::string> waitForLines(std::size_t count) {
    std::unique_lock lock(mutex_);
    EXPECT_TRUE(changed_.wait_for(lock, limit, [&] { return lines_.size() >= count; }));
    return lines_;
  }

  ExitStatus waitForExit() {
    std::unique_lock lock(mutex_);
    EXPECT_TRUE(changed_.wait_for(lock, limit, [&] { return status_.has_value(); }));
    EXPECT_EQ(exits_, 1);
    EXPECT_EQ(lines_.size(), linesAtExit_);
    return status_.value_or(ExitStatus{});
  }

  std::vector<std::string> linesAtEnd() {
    waitForExit();
    return waitForLines(0);
  }

 private:
  static constexpr std::chrono::seconds limit{20};

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> lines_;
  std::optional<ExitStatus> status_;
  int exits_ = 0;
  std::size_t linesAtExit_ = 0;
};

/// Returns the options of a child that runs `executable` in its own environment.
inline ProcessOptions program(std::string executable, std::vector<std::string> arguments = {}) {
  ProcessOptions options;
  options.executable = std::move(executable);
  options.arguments = std::move(arguments);
  options.environment = {{"PATH", "/usr/bin:/bin"}};
  return options;
}

/// Returns the options of a child that runs a shell script.
inline ProcessOptions script(const std::string& text) {
  return program("/bin/sh", {"-c", text});
}

constexpr ExitStatus exited(int status) {
  return {ExitStatus::Reason::exited, status};
}

constexpr ExitStatus signalled(int number) {
  return {ExitStatus::Reason::signalled, number};
}

}  // namespace zephyl::test
