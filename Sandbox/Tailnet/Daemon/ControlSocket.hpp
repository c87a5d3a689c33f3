#pragma once

#include <boost/asio/awaitable.hpp>

#include "Common/LocalSocket.hpp"
#include "Tailnet/Common/Control.hpp"

namespace zephyl::sandbox {

/// Answers one client until it has had enough, is silent for 10 s or sends a line that is too long.
boost::asio::awaitable<void> serveControl(LocalProtocol::socket socket, control::Status status);

}  // namespace zephyl::sandbox
