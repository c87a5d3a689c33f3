#pragma once

#include <utility>

#include <boost/asio/awaitable.hpp>

#include "Desktop/Client/Requests.hpp"
#include "Desktop/Client/Routes.hpp"
#include "Desktop/Client/TrayAccess.hpp"

namespace zephyl::sandbox::desktop {

/// Asks the tray's control API, one connection per request. Stores each route that the tray hands
/// out. Several requests may be under way at a time, on one thread. A caller that is not a
/// coroutine uses `boost::asio::co_spawn(io, client.ask(request), handler)`.
class TrayClient {
 public:
  TrayClient(TrayAccess access, Routes& routes) : access_(std::move(access)), routes_(routes) {}

  /// Returns the answer, whatever its status, or why there is none. A GET is given up after 10 s;
  /// there is no limit to the time of a change, because sharing a folder waits for the user.
  boost::asio::awaitable<Result<Answer>> ask(Request request);

 private:
  TrayAccess access_;
  Routes& routes_;
};

}  // namespace zephyl::sandbox::desktop
