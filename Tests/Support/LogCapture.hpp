#pragma once

#include <array>
#include <functional>
#include <stdexcept>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include "System/Files/FileDescriptor.hpp"

namespace zephyl::test {

/// What `work` writes to standard error, the diagnostic log: at most 64 KiB. It goes through a
/// pipe, so that it arrives whatever becomes of the disk.
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
