#include <cstdint>
#include <cstdlib>

#include "ZephylTray/Registry/InviteKey.hpp"

/// Parses any bytes as a pasted invite key. An accepted key must be valid.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto key = zephyl::InviteKey::parse(text);
  if (!key) {
    if (key.error().errorDescription().empty()) std::abort();
    return 0;
  }
  const bool wellFormed =
      key->fingerprint.size() == 32 &&
      key->fingerprint.find_first_not_of("0123456789abcdef") == std::string::npos &&
      !key->preauthKey.empty();
  if (!wellFormed || zephyl::InviteKey::parse("\n" + std::string(text) + " ") != key) std::abort();
  return 0;
}
