#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "System/Data/Result.hpp"

/// Ed25519 signatures, their keys and their encoding. Pure.
namespace zephyl {

/// Decodes a base64 text. Returns nullopt if it is malformed, contains blanks or lacks padding.
std::optional<std::string> decodeBase64(std::string_view text);

/// The keys that an installation trusts. There may be several, so that keys can be replaced.
class TrustedKeys {
 public:
  static constexpr std::size_t keySize = 32;
  static constexpr std::size_t signatureSize = 64;

  /// Parses base64 texts, each of which may contain several keys separated by spaces. Fails if
  /// there is no key or one is malformed.
  static Result<TrustedKeys> parse(const std::vector<std::string>& texts);

  /// Returns whether one of the keys made this signature (raw bytes) of these bytes.
  [[nodiscard]] bool verify(std::string_view bytes, std::string_view signature) const;
  /// Returns the same for any of several signatures, base64 texts separated by spaces. Only the
  /// first few are tried.
  [[nodiscard]] bool verifyAny(std::string_view bytes, std::string_view signatures) const;

 private:
  std::vector<std::string> keys_;
};

/// Returns the SHA-256 of `bytes` in lower-case hexadecimal digits.
std::string sha256Of(std::string_view bytes);

/// Returns the verified contents of a feed: the text before its last line, which is
///
///     <!-- signature: BASE64 BASE64... -->
///
/// One valid signature is sufficient.
Result<std::string_view> verifiedFeed(std::string_view feed, const TrustedKeys& keys);

}  // namespace zephyl
