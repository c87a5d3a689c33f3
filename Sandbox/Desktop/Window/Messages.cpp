#include "Desktop/Window/Messages.hpp"

#include "System/Files/Directories.hpp"
#include "System/Files/Environment.hpp"

namespace zephyl::sandbox::desktop {

Result<std::string> socketPath() {
  const auto given = environmentVariable("ZEPHYL_SANDBOX_DESKTOP_SOCKET");
  if (given && !given->empty()) return *given;
  if (const auto data = directories::applicationSupport()) return *data + "/Zephyl/desktop.sock";
  return Error{"neither ZEPHYL_SANDBOX_DESKTOP_SOCKET nor HOME is set"};
}

}  // namespace zephyl::sandbox::desktop
