#include "Helpers/Updates/Program/Signature.hpp"

#include <algorithm>
#include <memory>

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

/// The six bits of a base64 digit; -1 for what is none.
int valueOf(char digit) {
  constexpr std::string_view digits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const auto place = digits.find(digit);
  return place == std::string_view::npos ? -1 : static_cast<int>(place);
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
  if (text.size() % 4 != 0) return std::nullopt;
  const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
  text.remove_suffix(padding);
  std::string bytes;
  unsigned pending = 0;
  int bits = 0;
  for (const char digit : text) {
    const int value = valueOf(digit);
    if (value < 0) return std::nullopt;
    pending = (pending << 6U | static_cast<unsigned>(value)) & 0xffffU;
    bits += 6;
    if (bits < 8) continue;
    bits -= 8;
    bytes += static_cast<char>(pending >> static_cast<unsigned>(bits) & 0xffU);
  }
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
  const auto looked = std::min(words.size(), maxSignatures);
  return std::any_of(words.begin(), words.begin() + static_cast<std::ptrdiff_t>(looked),
                     [&](std::string_view word) {
                       const auto signature = decodeBase64(word);
                       return signature && verify(bytes, *signature);
                     });
}

std::string sha256Of(std::string_view bytes) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned size = 0;
  EVP_Digest(bytes.data(), bytes.size(), digest.data(), &size, EVP_sha256(), nullptr);
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (unsigned i = 0; i < size; ++i) {
    text += digits[digest.at(i) >> 4U];
    text += digits[digest.at(i) & 0xfU];
  }
  return text;
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
  return Error{"The feed's signature is not good."};
}

}  // namespace zephyl
