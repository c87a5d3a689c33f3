#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/ip/tcp.hpp>

#include "System/Data/Result.hpp"

namespace zephyl::sandbox {

/// Returns whether the address leads to this machine: 127.0.0.0/8, also as an IPv6 address, or ::1.
bool isLoopback(const boost::asio::ip::address& address);

/// Parses "127.0.0.1:80" or "[::1]:80". Returns nullopt for anything else, including port 0.
std::optional<boost::asio::ip::tcp::endpoint> parseEndpoint(std::string_view text);

/// Parses an endpoint. Fails if its address is not a loopback address.
Result<boost::asio::ip::tcp::endpoint> parseLoopbackEndpoint(std::string_view text);

std::string toText(const boost::asio::ip::tcp::endpoint& endpoint);

/// Listens on the endpoint. Port 0 means any free port. The error contains the endpoint and the
/// reason.
Result<boost::asio::ip::tcp::acceptor> listenOn(const boost::asio::any_io_executor& executor,
                                                const boost::asio::ip::tcp::endpoint& endpoint);

}  // namespace zephyl::sandbox
