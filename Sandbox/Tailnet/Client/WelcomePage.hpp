#pragma once

#include <string>
#include <string_view>

namespace zephyl::sandbox {

/// What the server says about itself.
struct ServerIdentity {
  std::string name;
  /// "#RRGGBB".
  std::string accent;
};

/// The same fingerprint always gives the same identity.
ServerIdentity identityOf(std::string_view fingerprint);

struct PageFacts {
  ServerIdentity server;
  std::string fingerprint;
  std::string_view relay;
  std::string target;
  bool targetResolved = false;
};

/// The page at the other end of the data tunnel: HTML that loads nothing else. The facts may hold
/// any text.
std::string composeWelcomePage(const PageFacts& facts);

}  // namespace zephyl::sandbox
