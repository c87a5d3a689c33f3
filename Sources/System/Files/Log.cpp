#include "System/Files/Log.hpp"

#include <mutex>
#include <utility>

#include "System/Data/Text.hpp"
#include "System/Files/StandardError.hpp"

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

StandardError& standardError() {
  static StandardError theOne;
  return theOne;
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
  standardError().write(line);
}

}  // namespace zephyl
