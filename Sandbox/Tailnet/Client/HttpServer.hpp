#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <boost/asio/awaitable.hpp>
#include <boost/asio/ip/tcp.hpp>

namespace zephyl::sandbox {

struct Content {
  std::string type;
  std::string body;
};

/// What there is to GET at a path; none is 404.
using Site = std::function<std::optional<Content>(std::string_view path)>;

/// Serves the site to one client over HTTP/1.1, GET and HEAD, until the client has had enough.
/// Bounds: 8 KiB of header, 4 KiB of body, 30 s for a request to arrive and for an answer to be
/// taken.
boost::asio::awaitable<void> serveHttp(boost::asio::ip::tcp::socket socket,
                                       std::shared_ptr<const Site> site);

}  // namespace zephyl::sandbox
