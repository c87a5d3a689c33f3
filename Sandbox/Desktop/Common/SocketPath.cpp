#include "Desktop/Common/SocketPath.hpp"

#include <cstdlib>
#include <string_view>

namespace zephyl::sandbox::desktop {
namespace {

constexpr auto file = "/Zephyl/desktop.sock";

std::string environment(const char* name) {
  const char* value = std::getenv(name);
  return value ? value : "";
}

}  // namespace

Result<std::string> socketPath() {
  if (auto given = environment("ZEPHYL_SANDBOX_DESKTOP_SOCKET"); !given.empty()) return given;
  if (const auto data = environment("XDG_DATA_HOME"); data.starts_with('/')) return data + file;
  if (const auto home = environment("HOME"); !home.empty()) return home + "/.local/share" + file;
  return Failure{
      "neither ZEPHYL_SANDBOX_DESKTOP_SOCKET nor HOME says where the window's socket is"};
}

}  // namespace zephyl::sandbox::desktop
