#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>

#include "Agent/Agent.hpp"
#include "Agent/Api.hpp"
#include "Agent/Outcome.hpp"

namespace zephyl::sandbox {

/// Listens on a port of 127.0.0.1; 0 is any free one. A port that is taken is a failure.
Outcome<boost::asio::ip::tcp::acceptor> listenOn(boost::asio::io_context& io, unsigned short port);

/// Serves the API over HTTP/1.1, and the agent's activity as an event stream on GET /api/events.
///
/// Bounds: 256 connections (further ones are closed at once), 8 KiB of header, 16 KiB of body, 60 s
/// for a request to arrive, 10 s for an answer to be taken. Lives on the thread of its `io`.
class Server {
 public:
  Server(boost::asio::io_context& io, boost::asio::ip::tcp::acceptor acceptor, Agent& agent,
         std::chrono::milliseconds streamKeepAlive);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  /// Takes no more connections, ends the streams, and closes each connection once its present
  /// answer is out.
  void stop();

  /// No connection is left.
  bool idle() const { return sessions_.empty(); }

 private:
  class Session;

  void acceptNext();
  void open(boost::asio::ip::tcp::socket socket);

  boost::asio::io_context& io_;
  boost::asio::ip::tcp::acceptor acceptor_;
  boost::asio::steady_timer acceptPause_;
  Agent& agent_;
  Api api_;
  std::chrono::milliseconds streamKeepAlive_;
  std::uint64_t lastSession_ = 0;
  std::map<std::uint64_t, std::shared_ptr<Session>> sessions_;
};

}  // namespace zephyl::sandbox
