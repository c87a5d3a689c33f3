#pragma once

#include <optional>

#include <boost/asio/awaitable.hpp>

#include "Agent/Agent.hpp"
#include "Common/HTTPServer.hpp"

namespace zephyl::sandbox {

/// Answers any request to the agent's HTTP API. Errors are answered with {"error": text}. Does not
/// handle the event stream.
boost::asio::awaitable<HTTPResponse> answerRequest(Agent& agent, const HTTPRequest& request);

/// Returns {"error": text} with the status.
HTTPResponse errorResponse(unsigned status, std::string_view message);

/// Returns whether the request comes from a program of this machine. A browser sends the host from
/// which a page was loaded and the page's origin, so pages of other sites are recognized, even with
/// a name that resolves to loopback. The agent's own clients send no Origin.
bool isFromThisMachine(const HTTPRequest& request);

}  // namespace zephyl::sandbox
