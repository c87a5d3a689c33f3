#pragma once

#include <chrono>

#include <boost/asio/awaitable.hpp>
#include <boost/beast/core/tcp_stream.hpp>

#include "Agent/Agent.hpp"
#include "Common/HTTPServer.hpp"

namespace zephyl::sandbox {

/// Serves the agent's activity as a stream of events to one client: a "data: " line at once and
/// after each change, at least 100 ms apart, and a comment line after each silence of `keepAlive`.
/// Several changes while an event is being written, or is too recent, become one event. Ends when
/// the client closes, when it reads nothing for 10 s, and after the current event when the server
/// stops. An HTTP/1.1 request is answered in chunks.
boost::asio::awaitable<void> serveEvents(Agent& agent, const HTTPServer& server,
                                         const HTTPRequest& request,
                                         boost::beast::tcp_stream& stream,
                                         std::chrono::milliseconds keepAlive);

}  // namespace zephyl::sandbox
