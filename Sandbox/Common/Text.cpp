#include "Common/Text.hpp"

#include <fmt/format.h>

namespace zephyl::sandbox {

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

}  // namespace zephyl::sandbox
