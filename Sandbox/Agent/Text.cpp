#include "Agent/Text.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include <fmt/format.h>

namespace zephyl::sandbox {
namespace {

struct Lead {
  std::size_t length;
  std::uint32_t bits;
  std::uint32_t least;  // smaller code points have a shorter form, so this one is invalid
};

Lead readLead(unsigned char byte) {
  if (byte < 0x80) return {1, byte, 0};
  if (byte >> 5 == 0x06) return {2, byte & 0x1FU, 0x80};
  if (byte >> 4 == 0x0E) return {3, byte & 0x0FU, 0x800};
  if (byte >> 3 == 0x1E) return {4, byte & 0x07U, 0x10000};
  return {0, 0, 0};
}

/// The length of the valid character that the text begins with; 0 when it begins with none.
std::size_t characterLength(std::string_view text) {
  const auto lead = readLead(static_cast<unsigned char>(text.front()));
  if (lead.length == 0 || lead.length > text.size()) return 0;
  auto codePoint = lead.bits;
  for (std::size_t i = 1; i < lead.length; ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte >> 6 != 0x02) return 0;
    codePoint = codePoint << 6 | (byte & 0x3FU);
  }
  const bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
  return codePoint < lead.least || codePoint > 0x10FFFF || surrogate ? 0 : lead.length;
}

}  // namespace

bool isUtf8(std::string_view text) {
  while (!text.empty()) {
    const auto length = characterLength(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

std::string toUtf8(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const auto length = characterLength(text);
    result += length == 0 ? std::string_view("\xEF\xBF\xBD") : text.substr(0, length);
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return result;
}

std::string counted(long long count, std::string_view noun) {
  return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

}  // namespace zephyl::sandbox
