#include "Desktop/Client/TrayAccess.hpp"

#include <utility>

#include "Common/TakenVariable.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Environment.hpp"

namespace zephyl::sandbox::desktop {

Result<std::optional<TrayAccess>> takeTrayAccess() {
  constexpr auto portVariable = "ZEPHYL_ONBOARD_PORT";
  auto token = takeVariable("ZEPHYL_ONBOARD_TOKEN");
  if (token.empty()) return std::optional<TrayAccess>();
  const auto port = parseDecimal(environmentVariable(portVariable).value_or("")).value_or(0);
  if (port < 1 || port > 65535) return Error{portVariable, " is not a port"};
  return std::optional<TrayAccess>(
      {.port = static_cast<unsigned short>(port), .token = std::move(token)});
}

}  // namespace zephyl::sandbox::desktop
