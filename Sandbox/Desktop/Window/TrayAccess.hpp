#pragma once

#include <optional>
#include <string>

#include "Common/Result.hpp"

namespace zephyl::sandbox::desktop {

/// How the tray that started this program is reached: the port of its control API and the token
/// that opens it.
struct TrayAccess {
  unsigned short port = 0;
  std::string token;
};

/// Takes ZEPHYL_ONBOARD_TOKEN out of the environment of this process, where anyone who may look at
/// the process could read it. None when the tray has not started this program; a port that is
/// missing or makes no sense is a failure.
Result<std::optional<TrayAccess>> takeTrayAccess();

}  // namespace zephyl::sandbox::desktop
