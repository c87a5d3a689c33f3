#pragma once

#include <optional>
#include <string>

#include "System/Data/Result.hpp"

namespace zephyl::sandbox::desktop {

/// The access to the tray that started this program: the port and the token of its control API.
struct TrayAccess {
  unsigned short port = 0;
  std::string token;
};

/// Reads the access from the environment, and removes ZEPHYL_ONBOARD_TOKEN from it, because other
/// programs could read it. Returns nullopt if the tray has not started this program. Fails if the
/// port is missing or invalid.
Result<std::optional<TrayAccess>> takeTrayAccess();

}  // namespace zephyl::sandbox::desktop
