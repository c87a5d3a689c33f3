#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <openssl/evp.h>

namespace zephyl::test {

/// A fresh Ed25519 key pair.
class SigningKey {
 public:
  SigningKey() : key_(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"), EVP_PKEY_free) {}

  [[nodiscard]] std::string publicKey() const {
    std::string raw(32, '\0');
    std::size_t size = raw.size();
    EVP_PKEY_get_raw_public_key(key_.get(), bytes(raw), &size);
    return encode(raw);
  }
  [[nodiscard]] std::string sign(std::string_view text) const {
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(),
                                                                          EVP_MD_CTX_free);
    std::string signature(64, '\0');
    std::size_t size = signature.size();
    EVP_DigestSignInit(context.get(), nullptr, nullptr, nullptr, key_.get());
    EVP_DigestSign(context.get(), bytes(signature), &size,
                   reinterpret_cast<const unsigned char*>(text.data()), text.size());
    return signature;
  }
  [[nodiscard]] std::string signBase64(std::string_view text) const { return encode(sign(text)); }

 private:
  static unsigned char* bytes(std::string& text) {
    return reinterpret_cast<unsigned char*>(text.data());
  }
  static std::string encode(std::string raw) {
    std::string text(4 * ((raw.size() + 2) / 3) + 1, '\0');
    text.resize(static_cast<std::size_t>(
        EVP_EncodeBlock(bytes(text), bytes(raw), static_cast<int>(raw.size()))));
    return text;
  }

  std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key_;
};

}  // namespace zephyl::test
