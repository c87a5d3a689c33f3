#pragma once

#include <string>
#include <string_view>

#include "Tailnet/Client/ServerIdentity.hpp"

namespace zephyl::sandbox {

struct PageFacts {
  ServerIdentity server;
  std::string fingerprint;
  std::string_view relay;
  std::string target;
  bool targetResolved = false;
};

/// What a browser shows at the other end of the data tunnel: one HTML page that needs nothing else.
/// The facts may hold any text.
std::string composeWelcomePage(const PageFacts& facts);

}  // namespace zephyl::sandbox
