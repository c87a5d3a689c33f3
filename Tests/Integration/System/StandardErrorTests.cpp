#include "System/Files/StandardError.hpp"

#include <chrono>
#include <csignal>
#include <string>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include "System/Files/FileDescriptor.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

/// Standard error is a pipe that only the test reads.
class StandardErrorTest : public ::testing::Test {
 protected:
  StandardErrorTest() : before_(::dup(STDERR_FILENO)) {
    int ends[2];
    EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
    reading_.reset(ends[0]);
    ::fcntl(ends[0], F_SETFL, O_NONBLOCK);
    ::fcntl(ends[0], F_SETPIPE_SZ, 4096);
    ::dup2(ends[1], STDERR_FILENO);
    ::close(ends[1]);
  }
  ~StandardErrorTest() override { ::dup2(before_.get(), STDERR_FILENO); }
  StandardErrorTest(const StandardErrorTest&) = delete;
  StandardErrorTest& operator=(const StandardErrorTest&) = delete;

  /// Returns the output since the last call.
  std::string read() const {
    std::string all;
    char piece[8192];
    for (;;) {
      const auto count = ::read(reading_.get(), piece, sizeof piece);
      if (count <= 0) return all;
      all.append(piece, static_cast<std::size_t>(count));
    }
  }
  /// Returns how long it takes to write a line.
  std::chrono::nanoseconds timeToWrite(const std::string& line) {
    const auto began = std::chrono::steady_clock::now();
    error_.write(line);
    return std::chrono::steady_clock::now() - began;
  }

  const FileDescriptor before_;
  FileDescriptor reading_;
  StandardError error_;
  const std::string filler_ = std::string(4095, 'x') + "\n";  // one page of the pipe
};

TEST_F(StandardErrorTest, WritesLines) {
  error_.write("one\n");
  error_.write("two\n");
  EXPECT_EQ(read(), "one\ntwo\n");
}

TEST_F(StandardErrorTest, KeepsTheFlagsOfTheSharedFile) {
  error_.write("one\n");
  EXPECT_EQ(::fcntl(STDERR_FILENO, F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(StandardErrorTest, WaitsOnceAndThenDropsLinesUntilAWriteSucceeds) {
  error_.write(filler_);
  EXPECT_GE(timeToWrite("first\n"), StandardError::patience);
  for (int i = 0; i < 100; ++i) error_.write("more\n");
  EXPECT_LT(timeToWrite("more\n"), StandardError::patience / 2) << "it does not wait again";
  EXPECT_EQ(read(), filler_);
  error_.write("last\n");
  EXPECT_EQ(read(), "[tray] 102 log lines were dropped: standard error was blocked\nlast\n");
  error_.write("after\n");
  EXPECT_EQ(read(), "after\n");
}

TEST_F(StandardErrorTest, StartsANewLineAfterATruncatedOne) {
  const std::string longLine = std::string(6000, 'y') + "\n";
  error_.write(longLine);
  EXPECT_EQ(read(), longLine.substr(0, 4096));
  error_.write("last\n");
  EXPECT_EQ(read(), "\n[tray] 1 log lines were dropped: standard error was blocked\nlast\n");
}

TEST_F(StandardErrorTest, DropsLinesIfThereIsNoReader) {
  reading_.reset();
  const auto before = ::signal(SIGPIPE, SIG_IGN);
  EXPECT_LT(timeToWrite("lost\n"), StandardError::patience);
  ::signal(SIGPIPE, before);
}

TEST_F(StandardErrorTest, DropsLinesIfItIsClosed) {
  ::close(STDERR_FILENO);
  EXPECT_LT(timeToWrite("lost\n"), StandardError::patience);
}

}  // namespace
}  // namespace zephyl
