#pragma once

#include <boost/asio/awaitable.hpp>

#include "Common/LocalSocket.hpp"
#include "Desktop/Window/Routes.hpp"
#include "Desktop/Window/TrayClient.hpp"

namespace zephyl::sandbox::desktop {

/// Does what one client of the window's socket asks for; see Common/Messages.hpp.
boost::asio::awaitable<void> serveCommand(LocalProtocol::socket socket, TrayClient& tray,
                                          Routes& routes);

}  // namespace zephyl::sandbox::desktop
