#pragma once

#include <optional>
#include <string>

#include "System/Data/Result.hpp"

namespace zephyl::sandbox::desktop {

/// How the tray that started this program is reached: the port of its control API and the token
/// that opens it.
struct TrayAccess {
  unsigned short port = 0;
  std::string token;
};

/// Removes ZEPHYL_ONBOARD_TOKEN from the environment of this process, which other programs could
/// read. Returns nullopt when the tray has not started this program. An error when the port is
/// missing or invalid.
Result<std::optional<TrayAccess>> takeTrayAccess();

}  // namespace zephyl::sandbox::desktop
