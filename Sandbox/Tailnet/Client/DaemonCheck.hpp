#pragma once

#include <string>

#include <boost/asio/awaitable.hpp>
#include <boost/asio/ip/tcp.hpp>

#include "Tailnet/Common/Control.hpp"

namespace zephyl::sandbox {

/// Asks the daemon at the socket until it runs; gives up after 3 s, with the last reason.
boost::asio::awaitable<Result<control::Status>> awaitDaemon(std::string socketPath);

/// An error unless the daemon's proxy speaks SOCKS 5 and lets us in.
boost::asio::awaitable<Result<void>> checkProxy(boost::asio::ip::tcp::endpoint endpoint);

}  // namespace zephyl::sandbox
