#include "System/Files/Log.hpp"

#include <mutex>
#include <utility>

#include "System/Data/Text.hpp"
#include "System/Files/StandardError.hpp"

namespace zephyl {

namespace {

/// Where lines are sent in addition to standard error, or instead of it.
struct Redirection {
  std::mutex mutex;
  std::function<void(const std::string&)> receive;
  bool instead = false;

  /// Returns whether the line must not be written to standard error.
  bool handle(const std::string& line) {
    const std::scoped_lock lock(mutex);
    if (receive) receive(line);
    return receive && instead;
  }

  void set(std::function<void(const std::string&)> newReceive, bool isInstead) {
    const std::scoped_lock lock(mutex);
    receive = std::move(newReceive);
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

LogSink::LogSink(std::function<void(const std::string&)> receive, bool instead) {
  redirection().set(std::move(receive), instead);
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
