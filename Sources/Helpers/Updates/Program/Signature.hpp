#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "System/Data/Result.hpp"

/// Ed25519 signatures and what they are made of. Pure.
namespace zephyl {

/// The bytes of a base64 text; none when it is anything else, spaces and missing padding included.
std::optional<std::string> decodeBase64(std::string_view text);

/// The keys that an installation trusts. There may be several, so that one can be retired.
class TrustedKeys {
 public:
  static constexpr std::size_t keySize = 32;
  static constexpr std::size_t signatureSize = 64;

  /// Base64 texts, each perhaps several separated by spaces. Fails when there is none, or one that
  /// is no key.
  static Result<TrustedKeys> parse(const std::vector<std::string>& texts);

  /// Whether any of the keys made this signature (raw) of these bytes.
  [[nodiscard]] bool verify(std::string_view bytes, std::string_view signature) const;
  /// The same of any of several signatures, base64 texts separated by spaces, of which only the
  /// first few are tried.
  [[nodiscard]] bool verifyAny(std::string_view bytes, std::string_view signatures) const;

 private:
  std::vector<std::string> keys_;
};

/// The SHA-256 of `bytes` in lower-case hexadecimal digits.
std::string sha256Of(std::string_view bytes);

/// A feed whose signature was good: what stands before its signature line,
///
///     <!-- signature: BASE64 BASE64... -->
///
/// which is the last one. One good signature is enough.
Result<std::string_view> verifiedFeed(std::string_view feed, const TrustedKeys& keys);

}  // namespace zephyl
