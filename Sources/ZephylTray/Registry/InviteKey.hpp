#pragma once

#include <string>
#include <string_view>

#include "System/Data/Result.hpp"
#include "System/Data/Secret.hpp"

namespace zephyl {

/// Reads the invite key that a server's administrator gave the user:
///
///     inv_v2_<fingerprint>_<key section>     the key section is what follows "hskey-auth-"
///     inv1_<fingerprint>_<key section>       the key section is the whole key
///
/// The fingerprint is 32 hexadecimal digits; the key section may hold underscores.
class InviteKey {
 public:
  /// What a pre-authorisation key begins with; an older one need not.
  static constexpr std::string_view preauthPrefix = "hskey-auth-";

  struct Parsed {
    std::string fingerprint;  ///< in lower case
    SecretString preauthKey;  ///< joins the server's tailnet, once

    bool operator==(const Parsed&) const = default;
  };

  struct ParseError {
    enum class Kind { unsupportedVersion, malformed, badFingerprint, badPreauthKey };

    Kind kind;
    std::string version;  ///< of an unsupported version: what the key begins with

    /// The message for the user.
    [[nodiscard]] std::string errorDescription() const;

    bool operator==(const ParseError&) const = default;
  };

  /// A pure function of the pasted text; white space and newlines around the key do not count.
  static boost::system::result<Parsed, ParseError> parse(std::string_view text);
};

}  // namespace zephyl
