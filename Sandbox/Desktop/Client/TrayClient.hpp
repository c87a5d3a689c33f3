#pragma once

#include <utility>

#include <boost/asio/awaitable.hpp>

#include "Desktop/Client/Requests.hpp"
#include "Desktop/Client/Routes.hpp"
#include "Desktop/Client/TrayAccess.hpp"

namespace zephyl::sandbox::desktop {

/// A client of the tray's control API, with one connection per request. Stores each route that the
/// tray reports. Several requests may be pending, on one thread. A caller that is not a coroutine
/// uses `boost::asio::co_spawn(io, client.ask(request), handler)`.
class TrayClient {
 public:
  TrayClient(TrayAccess access, Routes& routes) : access_(std::move(access)), routes_(routes) {}

  /// Returns the answer with any status, or an error if there is no answer. A GET fails after 10 s.
  /// Changes have no time-out, because sharing a folder waits for the user.
  boost::asio::awaitable<Result<Answer>> ask(Request request);

 private:
  TrayAccess access_;
  Routes& routes_;
};

}  // namespace zephyl::sandbox::desktop
