#pragma once

#include <string>
#include <string_view>

namespace zephyl::sandbox {

/// The server's own name and color.
struct ServerIdentity {
  std::string name;
  /// "#RRGGBB".
  std::string accent;
};

/// Returns the identity for a fingerprint. It is always the same.
ServerIdentity identityOf(std::string_view fingerprint);

struct PageFacts {
  ServerIdentity server;
  std::string fingerprint;
  std::string_view relay;
  std::string target;
  bool targetResolved = false;
};

/// Returns the page at the other end of the data tunnel: HTML that loads nothing else. The facts
/// may contain any text.
std::string composeWelcomePage(const PageFacts& facts);

}  // namespace zephyl::sandbox
