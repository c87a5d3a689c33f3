#include "ZephylTray/Registry/InviteKey.hpp"

#include <algorithm>
#include <array>

#include "System/Data/Text.hpp"

namespace zephyl {

namespace {

using Kind = InviteKey::ParseError::Kind;

constexpr std::string_view currentPrefix = "inv_v2_";
constexpr std::string_view olderPrefix = "inv1_";
constexpr std::size_t fingerprintLength = 32;

/// White space that may surround a pasted text, including that of other scripts and of web pages.
constexpr std::array<std::string_view, 24> whitespace = {
    " ",      "\t",     "\n",     "\v",     "\f",     "\r",     "\u0085", "\u00A0",
    "\u1680", "\u2000", "\u2001", "\u2002", "\u2003", "\u2004", "\u2005", "\u2006",
    "\u2007", "\u2008", "\u2009", "\u200A", "\u2028", "\u2029", "\u202F", "\u3000"};

std::string_view withoutWhitespaceAround(std::string_view text) {
  const auto drop = [&](std::string_view space) {
    if (text.starts_with(space)) {
      text.remove_prefix(space.size());
    } else if (text.ends_with(space)) {
      text.remove_suffix(space.size());
    } else {
      return false;
    }
    return true;
  };
  while (std::ranges::any_of(whitespace, drop)) {
  }
  return text;
}

bool isFingerprint(std::string_view text) {
  return text.size() == fingerprintLength &&
         text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

InviteKey::ParseError unknownForm(std::string_view text) {
  const bool cutOff = text == currentPrefix.substr(0, currentPrefix.size() - 1) ||
                      text == olderPrefix.substr(0, olderPrefix.size() - 1);
  if (cutOff) return {Kind::malformed, {}};
  return {Kind::unsupportedVersion, std::string(text.substr(0, text.find('_')))};
}

}  // namespace

std::string InviteKey::ParseError::errorDescription() const {
  switch (kind) {
    case Kind::unsupportedVersion:
      return "This invite key (" + version +
             ") is newer than this copy of Zephyl. Update Zephyl and try again.";
    case Kind::badFingerprint:
      return "The invite key's fingerprint is invalid. Ask for a fresh invite.";
    case Kind::badPreauthKey:
      return "The invite key is missing its key section. Ask for a fresh invite.";
    case Kind::malformed:
      break;
  }
  return "That doesn't look like a Zephyl invite key.";
}

boost::system::result<InviteKey::Parsed, InviteKey::ParseError> InviteKey::parse(
    std::string_view text) {
  text = withoutWhitespaceAround(text);
  if (text.empty()) return ParseError{Kind::malformed, {}};

  const bool isCurrent = text.starts_with(currentPrefix);
  if (!isCurrent && !text.starts_with(olderPrefix)) return unknownForm(text);
  text.remove_prefix(isCurrent ? currentPrefix.size() : olderPrefix.size());

  const auto separator = text.find('_');
  if (separator == std::string_view::npos) return ParseError{Kind::malformed, {}};
  std::string fingerprint = lowerCased(text.substr(0, separator));
  const auto keySection = text.substr(separator + 1);
  if (!isFingerprint(fingerprint)) return ParseError{Kind::badFingerprint, {}};
  if (keySection.empty()) return ParseError{Kind::badPreauthKey, {}};
  Parsed parsed{.fingerprint = std::move(fingerprint)};
  parsed.preauthKey.append(isCurrent ? preauthPrefix : "").append(keySection);
  return parsed;
}

}  // namespace zephyl
