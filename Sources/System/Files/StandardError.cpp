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

/// Opens standard error non-blocking. Setting the flag on descriptor 2 would affect other programs
/// that share the open file, so a pipe or a terminal is opened again. Files never block. Returns an
/// empty descriptor where none is needed or possible.
FileDescriptor openNonBlocking() {
  struct stat status {};
  if (::fstat(STDERR_FILENO, &status) != 0) return {};
  if (!S_ISFIFO(status.st_mode) && !S_ISCHR(status.st_mode)) return {};
  return FileDescriptor(::open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
}

/// Waits until standard error accepts bytes. Returns false if it does not before `deadline`.
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
  const auto marker = formatText("{}[tray] {} log lines were dropped: standard error was blocked\n",
                                 withinLine_ ? "\n" : "", dropped_);
  std::size_t written = 0;
  const bool blocked =
      writeWhole(marker, std::chrono::milliseconds::zero(), written) == Outcome::blocked;
  withinLine_ = blocked && (withinLine_ || written > 0);
  if (!blocked) dropped_ = 0;
  return !blocked;
}

/// Returns `blocked` if no byte is accepted for `limit`.
StandardError::Outcome StandardError::writeWhole(std::string_view text,
                                                 std::chrono::milliseconds limit,
                                                 std::size_t& written) {
  const auto nonBlocking = openNonBlocking();
  const int descriptor = nonBlocking ? nonBlocking.get() : STDERR_FILENO;
  auto deadline = SteadyClock::now() + limit;
  while (written < text.size()) {
    if (!nonBlocking && !waitUntilWritable(deadline)) return Outcome::blocked;
    // A pipe that accepts any byte accepts at least this many at once.
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
