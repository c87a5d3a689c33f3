#include "System/Data/Secret.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>
#include <vector>

#include <fmt/ranges.h>

#include <sys/random.h>

#include "System/Data/Format.hpp"

namespace zephyl {

namespace {

/// What copied a secret leaves pieces of it in the processor's wide registers, which are saved on
/// the stack when a signal comes or a library looks up a function. Another copy takes their place.
void overwriteRegisters() {
  static constexpr std::array<char, 1024> zeros{};
  std::array<char, zeros.size()> copy;
  std::size_t size = zeros.size();
  __asm__ volatile("" : "+r"(size));  // not known to the compiler, which would fill it with zeros
  ::memcpy(copy.data(), zeros.data(), size);
  __asm__ volatile("" : : "r"(copy.data()) : "memory");  // it has to be made
}

}  // namespace

void wipe(std::span<char> secret) {
  ::explicit_bzero(secret.data(), secret.size());
  overwriteRegisters();
}

void wipe(std::string& secret) {
  secret.resize(secret.capacity());  // it may have been longer
  wipe(std::span(secret));
  secret.clear();
}

void append(std::string& secret, std::string_view more) {
  const std::size_t size = secret.size() + more.size();
  if (size > secret.capacity()) {
    std::string larger;
    larger.reserve(std::max(size, 2 * secret.capacity()));
    larger = secret;
    wipe(secret);
    secret = std::move(larger);
  }
  secret += more;
}

bool equalSecrets(std::string_view left, std::string_view right) {
  if (left.size() != right.size()) return false;
  unsigned difference = 0;
  for (std::size_t i = 0; i < left.size(); ++i) {
    difference |= static_cast<unsigned char>(left[i]) ^ static_cast<unsigned char>(right[i]);
  }
  return difference == 0;
}

std::string randomHexadecimal(std::size_t bytes) {
  std::vector<unsigned char> drawn(bytes);
  std::size_t filled = 0;
  while (filled < bytes) {
    const auto count = ::getrandom(drawn.data() + filled, bytes - filled, 0);
    if (count > 0) filled += static_cast<std::size_t>(count);
  }
  std::string text = formatText("{:02x}", fmt::join(drawn, ""));
  ::explicit_bzero(drawn.data(), drawn.size());
  return text;
}

}  // namespace zephyl
