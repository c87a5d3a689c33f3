#pragma once

#include <functional>
#include <string>
#include <utility>

#include "Desktop/Client/Requests.hpp"

namespace zephyl::sandbox::desktop {

/// Speaks to the window that the tray started, through its socket. Every operation waits for its
/// answer.
class WindowLink {
 public:
  explicit WindowLink(std::string socketPath) : path_(std::move(socketPath)) {}

  /// Returns the control API's answer, whatever its status, or why there is none.
  [[nodiscard]] Result<Answer> ask(const Request& request) const;

  /// Calls `onRoute` with each route that the tray asks for. Returns why it ended: the window is
  /// gone.
  [[nodiscard]] Error watch(const std::function<void(const std::string&)>& onRoute) const;

 private:
  std::string path_;
};

}  // namespace zephyl::sandbox::desktop
