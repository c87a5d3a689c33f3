#include "Desktop/Window/TrayAccess.hpp"

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace zephyl::sandbox::desktop {
namespace {

constexpr auto tokenVariable = "ZEPHYL_ONBOARD_TOKEN";
constexpr auto portVariable = "ZEPHYL_ONBOARD_PORT";

std::string takeToken() {
  char* value = std::getenv(tokenVariable);
  if (!value) return {};
  std::string token = value;
  // Unsetting alone would leave the text in the memory that /proc shows as the environment.
  ::explicit_bzero(value, token.size());
  ::unsetenv(tokenVariable);
  return token;
}

std::optional<unsigned short> parsePort(std::string_view digits) {
  unsigned short port = 0;
  const auto [end, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), port);
  const bool whole = failure == std::errc() && end == digits.data() + digits.size();
  if (!whole || port == 0) return std::nullopt;
  return port;
}

}  // namespace

Result<std::optional<TrayAccess>> takeTrayAccess() {
  auto token = takeToken();
  if (token.empty()) return std::optional<TrayAccess>();
  const char* text = std::getenv(portVariable);
  const auto port = parsePort(text ? text : "");
  if (!port) return Failure{portVariable, " is not a port"};
  return std::optional<TrayAccess>({.port = *port, .token = std::move(token)});
}

}  // namespace zephyl::sandbox::desktop
