#include "System/Log.hpp"

#include <cerrno>

#include <unistd.h>

#include "System/Text.hpp"

namespace zephyl {

void logLine(std::string_view text) {
  const std::string line = "[tray] " + visible(text) + "\n";
  std::string_view rest = line;
  while (!rest.empty()) {
    const ssize_t written = ::write(STDERR_FILENO, rest.data(), rest.size());
    if (written > 0) {
      rest.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      return;
    }
  }
}

}  // namespace zephyl
