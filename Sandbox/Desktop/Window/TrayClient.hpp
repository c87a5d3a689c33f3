#pragma once

#include <utility>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>

#include "Common/Result.hpp"
#include "Desktop/Common/Messages.hpp"
#include "Desktop/Window/Routes.hpp"
#include "Desktop/Window/TrayAccess.hpp"

namespace zephyl::sandbox::desktop {

/// Asks the tray's control API, one connection per request. Whatever answer hands out a "request"
/// route, it is remembered. Several may be under way at a time, on one thread.
class TrayClient {
 public:
  TrayClient(boost::asio::any_io_executor executor, TrayAccess access, Routes& routes)
      : executor_(std::move(executor)), access_(std::move(access)), routes_(routes) {}

  /// Any status is an answer; a failure says why there is none. Sharing a folder waits for the user
  /// who chooses it, so that there is no limit to an answer's time.
  boost::asio::awaitable<Result<Answer>> ask(Request request);

 private:
  boost::asio::any_io_executor executor_;
  TrayAccess access_;
  Routes& routes_;
};

}  // namespace zephyl::sandbox::desktop
