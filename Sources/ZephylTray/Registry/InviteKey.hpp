#pragma once

#include <string>
#include <string_view>

#include "System/Data/Result.hpp"
#include "System/Data/Secret.hpp"

namespace zephyl {

/// Parses the invite key that the user received from a server's administrator:
///
///     inv_v2_<fingerprint>_<key section>     the key section is what follows "hskey-auth-"
///     inv1_<fingerprint>_<key section>       the key section is the whole key
///
/// The fingerprint has 32 hexadecimal digits. The key section may contain underscores.
class InviteKey {
 public:
  /// The prefix of pre-authorisation keys. Older keys may lack it.
  static constexpr std::string_view preauthPrefix = "hskey-auth-";

  struct Parsed {
    std::string fingerprint;  ///< in lower case
    SecretString preauthKey;  ///< valid for joining the server's tailnet once

    bool operator==(const Parsed&) const = default;
  };

  struct ParseError {
    enum class Kind { unsupportedVersion, malformed, badFingerprint, badPreauthKey };

    Kind kind;
    std::string version;  ///< for unsupportedVersion: the key's prefix

    /// Returns the message for the user.
    [[nodiscard]] std::string errorDescription() const;

    bool operator==(const ParseError&) const = default;
  };

  /// Parses the pasted text. Ignores white space and newlines around the key. Pure.
  static boost::system::result<Parsed, ParseError> parse(std::string_view text);
};

}  // namespace zephyl
