#pragma once

#include <array>
#include <functional>
#include <stdexcept>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include "System/Files/FileDescriptor.hpp"

namespace zephyl::test {

/// Runs `work` and returns what it writes to standard error, at most 64 KiB. Uses a pipe, so that
/// it works even if the disk is full.
inline std::string logOf(const std::function<void()>& work) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) throw std::runtime_error("no pipe");
  const FileDescriptor reading(ends[0]);
  FileDescriptor writing(ends[1]);
  const FileDescriptor standardError(::dup(STDERR_FILENO));
  ::dup2(writing.get(), STDERR_FILENO);
  writing.reset();
  work();
  ::dup2(standardError.get(), STDERR_FILENO);

  std::string log;
  std::array<char, 4096> chunk{};
  for (;;) {
    const auto length = ::read(reading.get(), chunk.data(), chunk.size());
    if (length <= 0) return log;
    log.append(chunk.data(), static_cast<std::size_t>(length));
  }
}

}  // namespace zephyl::test
