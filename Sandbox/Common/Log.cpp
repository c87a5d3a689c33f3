#include "Common/Log.hpp"

#include <cerrno>
#include <cstddef>
#include <mutex>
#include <string>

#include <unistd.h>

#include "System/Data/Text.hpp"

namespace zephyl::sandbox {

void print(std::string_view text) {
  while (!text.empty()) {
    const auto written = ::write(STDOUT_FILENO, text.data(), text.size());
    if (written < 0 && errno != EINTR) return;
    if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
  }
}

void logLine(std::string_view text) {
  static std::mutex mutex;
  const auto line = visible(text) + '\n';
  const std::lock_guard lock(mutex);
  print(line);
}

}  // namespace zephyl::sandbox
