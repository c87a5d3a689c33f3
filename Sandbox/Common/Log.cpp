#include "Common/Log.hpp"

#include <cerrno>
#include <cstddef>
#include <mutex>
#include <string>

#include <unistd.h>

#include "Common/Text.hpp"

namespace zephyl::sandbox {

void logLine(std::string_view text) {
  static std::mutex mutex;
  const auto line = printable(text) + '\n';
  const std::lock_guard lock(mutex);
  std::string_view rest = line;
  while (!rest.empty()) {
    const auto written = ::write(STDOUT_FILENO, rest.data(), rest.size());
    if (written < 0 && errno != EINTR) return;
    if (written > 0) rest.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace zephyl::sandbox
