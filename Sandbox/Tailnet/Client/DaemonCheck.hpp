#pragma once

#include <chrono>
#include <string>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/ip/tcp.hpp>

#include "Common/Result.hpp"
#include "Tailnet/Common/Control.hpp"

namespace zephyl::sandbox {

/// Asks the daemon at the socket until it says that it runs; gives up after `patience`, with the
/// last reason.
boost::asio::awaitable<Result<control::Status>> awaitDaemon(boost::asio::any_io_executor executor,
                                                            std::string socketPath,
                                                            std::chrono::milliseconds patience);

/// Whether the daemon's proxy speaks SOCKS 5 and lets us in.
boost::asio::awaitable<Result<void>> checkProxy(boost::asio::any_io_executor executor,
                                                boost::asio::ip::tcp::endpoint endpoint);

}  // namespace zephyl::sandbox
