#pragma once

#include <functional>
#include <memory>
#include <string>

#include <boost/asio/awaitable.hpp>
#include <boost/asio/ip/tcp.hpp>

namespace zephyl::sandbox {

/// Called with each destination that was refused because it is not on this machine.
using OnRefusal = std::function<void(const std::string& destination)>;

/// Serves one client of the proxy: SOCKS 5 without authentication, CONNECT only, and only to this
/// machine. Connecting has a time-out of 10 s. A client of another protocol is disconnected without
/// an answer.
boost::asio::awaitable<void> serveSocks(boost::asio::ip::tcp::socket socket,
                                        std::shared_ptr<const OnRefusal> onRefusal);

}  // namespace zephyl::sandbox
