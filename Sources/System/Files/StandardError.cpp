#include "System/Files/StandardError.hpp"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "System/Data/Format.hpp"
#include "System/Files/FileDescriptor.hpp"

namespace zephyl {

namespace {

using SteadyClock = std::chrono::steady_clock;

/// A descriptor of standard error that never blocks. The flag belongs to the open file, which other
/// programs share, so a pipe or a terminal is opened once more; files never block.
FileDescriptor openNonBlocking() {
  struct stat status {};
  if (::fstat(STDERR_FILENO, &status) != 0) return {};
  if (!S_ISFIFO(status.st_mode) && !S_ISCHR(status.st_mode)) return {};
  return FileDescriptor(::open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
}

/// Waits until standard error can take something. False when it cannot until `deadline`.
bool waitUntilWritable(SteadyClock::time_point deadline) {
  for (;;) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - SteadyClock::now()).count();
    pollfd waiting{.fd = STDERR_FILENO, .events = POLLOUT, .revents = 0};
    const int ready = ::poll(&waiting, 1, static_cast<int>(std::max<long long>(left, 0)));
    if (ready >= 0 || errno != EINTR) return ready > 0;
  }
}

}  // namespace

void StandardError::write(std::string_view line) {
  const std::scoped_lock lock(mutex_);
  if (dropped_ > 0 && !writeMarker()) {
    ++dropped_;
    return;
  }
  std::size_t written = 0;
  if (writeWhole(line, patience, written) != Outcome::blocked) return;
  withinLine_ = written > 0;
  ++dropped_;
}

bool StandardError::writeMarker() {
  const auto note = formatText("{}[tray] {} log lines were dropped: standard error took nothing\n",
                               withinLine_ ? "\n" : "", dropped_);
  std::size_t written = 0;
  const bool blocked =
      writeWhole(note, std::chrono::milliseconds::zero(), written) == Outcome::blocked;
  withinLine_ = blocked && (withinLine_ || written > 0);
  if (!blocked) dropped_ = 0;
  return !blocked;
}

/// `limit` is the longest time in which nothing is taken.
StandardError::Outcome StandardError::writeWhole(std::string_view text,
                                                 std::chrono::milliseconds limit,
                                                 std::size_t& written) {
  const auto nonBlocking = openNonBlocking();
  const int descriptor = nonBlocking ? nonBlocking.get() : STDERR_FILENO;
  auto deadline = SteadyClock::now() + limit;
  while (written < text.size()) {
    if (!nonBlocking && !waitUntilWritable(deadline)) return Outcome::blocked;
    // A pipe that can take anything can take as much as this at once.
    const auto piece = text.substr(written, PIPE_BUF);
    const auto count = ::write(descriptor, piece.data(), piece.size());
    if (count > 0) {
      written += static_cast<std::size_t>(count);
      deadline = SteadyClock::now() + limit;
    } else if (count < 0 && errno == EAGAIN) {
      if (!waitUntilWritable(deadline)) return Outcome::blocked;
      if (SteadyClock::now() >= deadline) return Outcome::blocked;
    } else if (count == 0 || errno != EINTR) {
      return Outcome::failed;
    }
  }
  return Outcome::written;
}

}  // namespace zephyl
