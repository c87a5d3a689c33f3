#include "Helpers/Updates/Program/Signature.hpp"

#include <algorithm>
#include <memory>
#include <span>

#include <openssl/evp.h>

#include "System/Data/Text.hpp"

namespace zephyl {

namespace {

constexpr std::string_view signatureBegin = "\n<!-- signature: ";
constexpr std::string_view signatureEnd = " -->\n";
constexpr std::size_t maxSignatures = 8;

const unsigned char* bytesOf(std::string_view text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

bool verifyWith(const std::string& key, std::string_view bytes, std::string_view signature) {
  const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> publicKey(
      EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr, bytesOf(key), key.size()),
      EVP_PKEY_free);
  const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                        EVP_MD_CTX_free);
  return publicKey && context &&
         EVP_DigestVerifyInit(context.get(), nullptr, nullptr, nullptr, publicKey.get()) == 1 &&
         EVP_DigestVerify(context.get(), bytesOf(signature), signature.size(), bytesOf(bytes),
                          bytes.size()) == 1;
}

}  // namespace

std::optional<std::string> decodeBase64(std::string_view text) {
  const std::size_t digits = text.find_last_not_of('=') + 1;
  const std::size_t padding = text.size() - digits;
  const bool isPadded = text.size() % 4 == 0 && padding <= 2 && text.find('=') >= digits;
  if (!isPadded) return std::nullopt;
  std::string bytes(text.size() / 4 * 3, '\0');
  const int decoded = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()), bytesOf(text),
                                      static_cast<int>(text.size()));
  // The decoder ignores blanks at both ends, and then returns fewer bytes.
  if (decoded < 0 || static_cast<std::size_t>(decoded) != bytes.size()) return std::nullopt;
  bytes.resize(bytes.size() - padding);
  return bytes;
}

Result<TrustedKeys> TrustedKeys::parse(const std::vector<std::string>& texts) {
  TrustedKeys trusted;
  for (const auto& text : texts) {
    for (const auto word : splitNonEmpty(text, ' ')) {
      auto key = decodeBase64(word);
      if (!key || key->size() != keySize) return Error{"The signing key is not an Ed25519 key."};
      trusted.keys_.push_back(std::move(*key));
    }
  }
  if (trusted.keys_.empty()) return Error{"There is no signing key."};
  return trusted;
}

bool TrustedKeys::verify(std::string_view bytes, std::string_view signature) const {
  if (signature.size() != signatureSize) return false;
  return std::ranges::any_of(keys_,
                             [&](const auto& key) { return verifyWith(key, bytes, signature); });
}

bool TrustedKeys::verifyAny(std::string_view bytes, std::string_view signatures) const {
  const auto words = splitNonEmpty(signatures, ' ');
  const auto tried = std::min(words.size(), maxSignatures);
  return std::any_of(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(tried),
                     [&](std::string_view word) {
                       const auto signature = decodeBase64(word);
                       return signature && verify(bytes, *signature);
                     });
}

std::string sha256Of(std::string_view bytes) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned size = 0;
  EVP_Digest(bytes.data(), bytes.size(), digest.data(), &size, EVP_sha256(), nullptr);
  return hexadecimal(std::span(digest).first(size));
}

Result<std::string_view> verifiedFeed(std::string_view feed, const TrustedKeys& keys) {
  const auto begin = feed.rfind(signatureBegin);
  if (begin == std::string_view::npos || !feed.ends_with(signatureEnd)) {
    return Error{"The feed is not signed."};
  }
  const auto contents = feed.substr(0, begin + 1);
  auto line = feed.substr(begin + signatureBegin.size());
  if (line.size() < signatureEnd.size()) return Error{"The feed is not signed."};
  line.remove_suffix(signatureEnd.size());
  if (keys.verifyAny(contents, line)) return contents;
  return Error{"The signature of the feed is invalid."};
}

}  // namespace zephyl
