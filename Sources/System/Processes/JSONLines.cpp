#include "System/Processes/JSONLines.hpp"

#include <array>
#include <cerrno>

#include <poll.h>

namespace zephyl {

bool JSONLines::receive() {
  std::array<char, 65536> buffer;
  ssize_t count = 0;
  do {
    count = ::read(input_, buffer.data(), buffer.size());
  } while (count < 0 && errno == EINTR);
  if (count <= 0) return false;
  std::string_view bytes(buffer.data(), static_cast<std::size_t>(count));
  while (const auto line = splitter_.next(bytes)) lines_.emplace_back(*line);
  return true;
}

bool JSONLines::inputHasEnded() {
  pollfd poll{.fd = input_, .events = POLLIN, .revents = 0};
  while (::poll(&poll, 1, 0) > 0) {
    if (!receive()) return true;
  }
  return false;
}

void JSONLines::writeLine(std::string_view line) const {
  while (!line.empty()) {
    const ssize_t count = ::write(output_, line.data(), line.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;
    line.remove_prefix(static_cast<std::size_t>(count));
  }
}

}  // namespace zephyl
