#include "System/Data/Secret.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include <sys/random.h>

#include "System/Data/Text.hpp"

namespace zephyl {

namespace {

/// Overwrites the processor's wide registers. Copying a secret leaves parts of it there, and the
/// next signal or lazily bound function saves them on the stack, where a search of the memory finds
/// them. Copying other data through the same registers is the only portable way to clear them.
void overwriteRegisters() {
  static constexpr std::array<char, 1024> zeros{};
  std::array<char, zeros.size()> copy;
  std::size_t size = zeros.size();
  __asm__ volatile("" : "+r"(size));  // hides the size, or the compiler would fill with zeros
  ::memcpy(copy.data(), zeros.data(), size);
  __asm__ volatile("" : : "r"(copy.data()) : "memory");  // prevents removal of the copy
}

}  // namespace

void wipe(std::span<char> secret) {
  if (!secret.empty()) ::explicit_bzero(secret.data(), secret.size());
  overwriteRegisters();
}

void wipe(std::string& secret) {
  secret.resize(secret.capacity());  // the text may have been longer before
  wipe(std::span(secret));
  secret.clear();
}

void SecretString::insert(std::size_t place, std::string_view text) {
  bytes_.insert(bytes_.begin() + static_cast<std::ptrdiff_t>(place), text.begin(), text.end());
}

void SecretString::erase(std::size_t place, std::size_t count) {
  const std::span all(bytes_);
  const auto rest = all.subspan(place + count);
  std::ranges::copy(rest, all.subspan(place).begin());
  wipe(all.last(count));
  bytes_.resize(bytes_.size() - count);
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
  std::vector<unsigned char, WipingAllocator<unsigned char>> drawn(bytes);
  std::size_t filled = 0;
  while (filled < bytes) {
    const auto count = ::getrandom(drawn.data() + filled, bytes - filled, 0);
    if (count > 0) filled += static_cast<std::size_t>(count);
  }
  return hexadecimal(drawn);
}

}  // namespace zephyl
