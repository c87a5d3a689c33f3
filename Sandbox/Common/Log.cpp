#include "Common/Log.hpp"

#include <cerrno>
#include <cstddef>
#include <string>

#include <unistd.h>

namespace zephyl::sandbox {
namespace {

std::string printable(std::string_view text) {
  std::string result;
  result.reserve(text.size() + 1);
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte < 0x20 || byte == 0x7F) {
      result += fmt::format("\\x{:02x}", byte);
    } else {
      result += character;
    }
  }
  return result;
}

}  // namespace

void logLine(std::string_view text) {
  const auto line = printable(text) + '\n';
  std::string_view rest = line;
  while (!rest.empty()) {
    const auto written = ::write(STDOUT_FILENO, rest.data(), rest.size());
    if (written < 0 && errno != EINTR) return;
    if (written > 0) rest.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace zephyl::sandbox
