#pragma once

#include <functional>
#include <memory>
#include <string>

#include <boost/asio/awaitable.hpp>
#include <boost/asio/ip/tcp.hpp>

namespace zephyl::sandbox {

/// Receives each destination that was refused because it is not on this machine.
using OnRefusal = std::function<void(const std::string& destination)>;

/// Serves one client of the proxy: SOCKS 5 without authentication, CONNECT only, and only to this
/// machine. The client has 10 s until it is connected, and no limit afterwards. A client that
/// speaks something else is disconnected without an answer.
boost::asio::awaitable<void> serveSocks(boost::asio::ip::tcp::socket socket,
                                        std::shared_ptr<const OnRefusal> onRefusal);

}  // namespace zephyl::sandbox
