#pragma once

#include <cstddef>
#include <string>

#include <boost/asio/awaitable.hpp>
#include <boost/describe/class.hpp>

#include "Common/LocalSocket.hpp"
#include "System/Data/JSON.hpp"

/// The protocol of the daemon's control socket, a local stream socket. Requests and answers are
/// JSON objects, one per line. A connection carries any number of requests.
///
///     {"op":"status"}     {"running":true,"node":"6f0c1e02-..."}
///     anything else       {"error":"..."}
namespace zephyl::sandbox::control {

struct Request {
  std::string op;
};
BOOST_DESCRIBE_STRUCT(Request, (), (op))

struct Status {
  bool running = false;
  /// The daemon's identity, stable while its state exists.
  std::string node;
};
BOOST_DESCRIBE_STRUCT(Status, (), (running, node))

/// Answers one client until it closes, is silent for 10 s or sends a line that is too long.
boost::asio::awaitable<void> serve(LocalProtocol::socket socket, Status status);

/// Queries the daemon at the endpoint once, for at most a second. Fails if the daemon is not
/// running yet.
boost::asio::awaitable<Result<Status>> askStatus(LocalProtocol::endpoint endpoint);

}  // namespace zephyl::sandbox::control
