#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/beast/core/tcp_stream.hpp>

namespace zephyl::sandbox {

/// Carries bytes both ways until both sides have ended. A side that ends its own direction only is
/// still sent to; an error on either side ends both. Holds 16 KiB per direction, so a reader that
/// is slow slows the writer down. The streams must not have a deadline.
boost::asio::awaitable<void> relay(boost::beast::tcp_stream& one, boost::beast::tcp_stream& other);

}  // namespace zephyl::sandbox
