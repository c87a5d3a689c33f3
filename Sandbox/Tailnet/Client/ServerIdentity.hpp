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

}  // namespace zephyl::sandbox
