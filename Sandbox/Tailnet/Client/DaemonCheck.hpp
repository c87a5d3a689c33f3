#pragma once

#include <string>

#include <boost/asio/awaitable.hpp>
#include <boost/asio/ip/tcp.hpp>

#include "Tailnet/Common/Control.hpp"

namespace zephyl::sandbox {

/// Queries the daemon at the socket until it runs. Fails after 3 s, with the last error.
boost::asio::awaitable<Result<control::Status>> awaitDaemon(std::string socketPath);

/// Fails unless the daemon's proxy speaks SOCKS 5 and accepts the client.
boost::asio::awaitable<Result<void>> checkProxy(boost::asio::ip::tcp::endpoint endpoint);

}  // namespace zephyl::sandbox
