#include "System/Files/Environment.hpp"

#include <array>
#include <cstdlib>
#include <string_view>

#include <unistd.h>

namespace zephyl {

namespace {

bool isPrivate(std::string_view name) {
  static constexpr std::array<std::string_view, 3> names = {"NOTIFY_SOCKET", "XDG_ACTIVATION_TOKEN",
                                                            "DESKTOP_STARTUP_ID"};
  for (const std::string_view candidate : names) {
    if (name == candidate) return true;
  }
  return name.starts_with("WATCHDOG_");
}

}  // namespace

Environment currentEnvironment() {
  Environment environment;
  for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
    const std::string_view variable = *entry;
    const std::size_t separator = variable.find('=');
    if (separator == 0 || separator == std::string_view::npos) continue;
    environment.emplace(variable.substr(0, separator), variable.substr(separator + 1));
  }
  return environment;
}

std::optional<std::string> environmentVariable(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr) return std::nullopt;
  return value;
}

void setActivationToken(Environment& environment, const std::string& token) {
  if (token.empty()) return;
  environment["XDG_ACTIVATION_TOKEN"] = token;
  environment["DESKTOP_STARTUP_ID"] = token;
}

void removePrivateEnvironmentVariables() {
  for (const auto& [name, value] : currentEnvironment()) {
    if (isPrivate(name)) ::unsetenv(name.c_str());
  }
}

}  // namespace zephyl
