#include "Desktop/View/Screen.hpp"

#include <algorithm>
#include <cstring>
#include <string>

#include <sys/socket.h>
#include <sys/un.h>

#include "System/Files/Environment.hpp"
#include "System/Files/FileDescriptor.hpp"

namespace zephyl::sandbox::desktop {
namespace {

/// A path that begins with a null byte is a name in the abstract namespace.
bool acceptsConnections(const std::string& path) {
  sockaddr_un address{};
  if (path.empty() || path.size() >= sizeof(address.sun_path)) return false;
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), path.size());
  const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
  return ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), length) == 0;
}

bool isWaylandReachable(const std::string& display) {
  if (display.empty()) return false;
  if (display.starts_with('/')) return acceptsConnections(display);
  const auto runtime = environmentVariable("XDG_RUNTIME_DIR").value_or("");
  return !runtime.empty() && acceptsConnections(runtime + "/" + display);
}

/// The display is ":10.0" or "host:10.0". A display on another host is assumed to be reachable.
bool isX11Reachable(const std::string& display) {
  const auto colon = display.rfind(':');
  if (colon == std::string::npos) return false;
  const auto host = display.substr(0, colon);
  if (!host.empty() && host != "unix") return true;
  auto number = display.substr(colon + 1);
  number = number.substr(0, number.find('.'));
  const auto path = "/tmp/.X11-unix/X" + number;
  return acceptsConnections(path) || acceptsConnections(std::string(1, '\0') + path);
}

}  // namespace

bool isScreenReachable() {
  return isWaylandReachable(environmentVariable("WAYLAND_DISPLAY").value_or("")) ||
         isX11Reachable(environmentVariable("DISPLAY").value_or(""));
}

}  // namespace zephyl::sandbox::desktop
