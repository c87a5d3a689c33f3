#pragma once

#include <array>
#include <optional>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <pty.h>
#include <sys/mman.h>
#include <termios.h>
#include <unistd.h>

#include "System/Files/FileDescriptor.hpp"

namespace zephyl::test {

/// Replaces a standard descriptor. The destructor restores it.
class ScopedDescriptor {
 public:
  ScopedDescriptor(int standard, const FileDescriptor& replacement)
      : standard_(standard), before_(::fcntl(standard, F_DUPFD_CLOEXEC, 3)) {
    ::dup2(replacement.get(), standard_);
  }
  ~ScopedDescriptor() { ::dup2(before_.get(), standard_); }
  ScopedDescriptor(const ScopedDescriptor&) = delete;
  ScopedDescriptor& operator=(const ScopedDescriptor&) = delete;

 private:
  const int standard_;
  const FileDescriptor before_;
};

/// A file with the given text as standard input.
class StandardInput {
 public:
  explicit StandardInput(const std::string& text) : file_(::memfd_create("input", MFD_CLOEXEC)) {
    if (::write(file_.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
      throw std::runtime_error("standard input could not be written");
    }
    ::lseek(file_.get(), 0, SEEK_SET);
    replaced_.emplace(STDIN_FILENO, file_);
  }

 private:
  const FileDescriptor file_;
  std::optional<ScopedDescriptor> replaced_;
};

/// A terminal as standard input and standard error.
class Terminal {
 public:
  Terminal() {
    int user = -1;
    int program = -1;
    if (::openpty(&user, &program, nullptr, nullptr, nullptr) != 0) {
      throw std::runtime_error("no terminal");
    }
    user_.reset(user);
    program_.reset(program);
    ::fcntl(user, F_SETFL, O_NONBLOCK);
    input_.emplace(STDIN_FILENO, program_);
    error_.emplace(STDERR_FILENO, program_);
  }

  void type(const std::string& text) const {
    EXPECT_EQ(::write(user_.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }
  /// Returns what the terminal has shown so far.
  const std::string& shown() {
    std::array<char, 4096> piece{};
    for (;;) {
      const auto count = ::read(user_.get(), piece.data(), piece.size());
      if (count <= 0) return shown_;
      shown_.append(piece.data(), static_cast<std::size_t>(count));
    }
  }
  [[nodiscard]] bool echoes() const {
    termios mode{};
    ::tcgetattr(program_.get(), &mode);
    return (mode.c_lflag & ECHO) != 0;
  }

 private:
  FileDescriptor user_;
  FileDescriptor program_;
  std::optional<ScopedDescriptor> input_;
  std::optional<ScopedDescriptor> error_;
  std::string shown_;
};

/// Returns what `work` writes to standard output.
template <typename Work>
std::string outputOf(Work work) {
  ::testing::internal::CaptureStdout();
  work();
  return ::testing::internal::GetCapturedStdout();
}

}  // namespace zephyl::test
