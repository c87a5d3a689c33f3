#pragma once

#include <boost/asio/awaitable.hpp>

#include "Common/LocalSocket.hpp"
#include "Desktop/Client/TrayClient.hpp"

namespace zephyl::sandbox::desktop {

/// Serves one client of the window's socket; see Window/Messages.hpp.
boost::asio::awaitable<void> serveCommand(LocalProtocol::socket socket, TrayClient& tray,
                                          Routes& routes);

}  // namespace zephyl::sandbox::desktop
