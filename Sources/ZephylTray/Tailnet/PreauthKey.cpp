#include "ZephylTray/Tailnet/PreauthKey.hpp"

#include <string_view>
#include <utility>

#include "ZephylTray/Registry/InviteKey.hpp"

namespace zephyl {

namespace {

constexpr std::string_view redaction = "[redacted]";

/// Shorter texts are not secrets and would match ordinary words.
constexpr std::size_t minSecretLength = 8;

void redact(std::string& line, std::string_view secret) {
  if (secret.size() < minSecretLength) return;
  for (auto at = line.find(secret); at != std::string::npos;
       at = line.find(secret, at + redaction.size())) {
    line.replace(at, secret.size(), redaction);
  }
}

}  // namespace

void PreauthKey::store(SecretString key) {
  key_ = std::move(key);
  ++number_;
}

void PreauthKey::clear(std::uint64_t number) {
  if (number == number_) key_.reset();
}

std::string PreauthKey::redacted(const std::string& line) const {
  std::string rest = line;
  if (!key_) return rest;
  std::string_view key = *key_;
  redact(rest, key);
  if (key.starts_with(InviteKey::preauthPrefix)) {
    key.remove_prefix(InviteKey::preauthPrefix.size());
    redact(rest, key);
  }
  return rest;
}

}  // namespace zephyl
