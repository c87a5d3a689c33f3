#pragma once

#include <functional>
#include <string>

#include "Common/Result.hpp"
#include "Desktop/Common/Messages.hpp"

namespace zephyl::sandbox::desktop {

/// Speaks to the window that the tray started, through its socket. Every operation waits for its
/// answer.
class WindowLink {
 public:
  explicit WindowLink(std::string socketPath) : path_(std::move(socketPath)) {}

  /// Any status is an answer; a failure says why there is none.
  Result<Answer> ask(const Request& request) const;

  /// Calls `onRoute` with each route that the tray asks for, until the window is gone, which is the
  /// failure.
  Failure watch(const std::function<void(const std::string&)>& onRoute) const;

 private:
  std::string path_;
};

}  // namespace zephyl::sandbox::desktop
