#include "ZephylTray/Tailnet/PublishedTailnet.hpp"

#include "System/Files/Log.hpp"

namespace zephyl {

void PublishedTailnet::appendLine(std::string line) {
  const std::scoped_lock lock(mutex_);
  log_.append(std::move(line));
}

void PublishedTailnet::logMessage(const std::string& text) {
  logLine(text);
  appendLine("[tray] " + text);
}

std::vector<std::string> PublishedTailnet::recentLog() const {
  const std::scoped_lock lock(mutex_);
  return log_.lines();
}

LogTail PublishedTailnet::logSince(std::uint64_t position) const {
  const std::scoped_lock lock(mutex_);
  return log_.since(position);
}

bool PublishedTailnet::hasLog() const {
  const std::scoped_lock lock(mutex_);
  return !log_.empty();
}

}  // namespace zephyl
