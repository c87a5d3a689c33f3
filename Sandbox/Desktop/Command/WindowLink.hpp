#pragma once

#include <functional>
#include <string>
#include <utility>

#include "Desktop/Client/Requests.hpp"

namespace zephyl::sandbox::desktop {

/// A client of the socket of the window that the tray started. Every operation waits for its
/// answer.
class WindowLink {
 public:
  explicit WindowLink(std::string socketPath) : path_(std::move(socketPath)) {}

  /// Returns the control API's answer with any status, or an error if there is no answer.
  [[nodiscard]] Result<Answer> ask(const Request& request) const;

  /// Calls `onRoute` with each screen that the tray requests. Returns when the window has ended,
  /// with the reason.
  [[nodiscard]] Error watch(const std::function<void(const std::string&)>& onRoute) const;

 private:
  std::string path_;
};

}  // namespace zephyl::sandbox::desktop
