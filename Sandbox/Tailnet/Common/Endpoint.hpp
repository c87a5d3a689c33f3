#pragma once

#include <string>
#include <string_view>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/ip/tcp.hpp>

#include "Common/Result.hpp"

namespace zephyl::sandbox {

/// Whether the address leads nowhere but to this machine: 127.0.0.0/8, also as an IPv6 address, and
/// ::1.
bool isLoopback(const boost::asio::ip::address& address);

/// Reads "127.0.0.1:80" or "[::1]:80". The sandbox never leaves the machine, so an address that is
/// not a loopback address is a failure too.
Result<boost::asio::ip::tcp::endpoint> parseLoopbackEndpoint(std::string_view text);

std::string toText(const boost::asio::ip::tcp::endpoint& endpoint);

/// A failure says which address and why.
Result<boost::asio::ip::tcp::acceptor> listenOn(const boost::asio::any_io_executor& executor,
                                                const boost::asio::ip::tcp::endpoint& endpoint);

}  // namespace zephyl::sandbox
