#include "System/Log.hpp"

#include <cerrno>
#include <mutex>
#include <utility>

#include <unistd.h>

#include "System/Text.hpp"

namespace zephyl {

namespace {

/// Where lines go besides, or instead.
struct Redirection {
  std::mutex mutex;
  std::function<void(const std::string&)> take;
  bool instead = false;

  /// Whether the line is dealt with.
  bool handle(const std::string& line) {
    const std::scoped_lock lock(mutex);
    if (take) take(line);
    return take && instead;
  }

  void set(std::function<void(const std::string&)> newTake, bool isInstead) {
    const std::scoped_lock lock(mutex);
    take = std::move(newTake);
    instead = isInstead;
  }
};

Redirection& redirection() {
  static Redirection theOne;
  return theOne;
}

void writeToStandardError(std::string_view rest) {
  while (!rest.empty()) {
    const ssize_t written = ::write(STDERR_FILENO, rest.data(), rest.size());
    if (written > 0) {
      rest.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      return;
    }
  }
}

}  // namespace

LogSink::LogSink(std::function<void(const std::string&)> take, bool instead) {
  redirection().set(std::move(take), instead);
}

LogSink::~LogSink() {
  redirection().set(nullptr, false);
}

void logLine(std::string_view text) {
  std::string line = "[tray] " + visible(text);
  if (redirection().handle(line)) return;
  line += '\n';
  writeToStandardError(line);
}

}  // namespace zephyl
