#pragma once

#include <optional>

#include <boost/asio/awaitable.hpp>

#include "Agent/Agent.hpp"
#include "Common/HTTPServer.hpp"

namespace zephyl::sandbox {

/// Answers a request to the agent's HTTP API, whatever it holds. An answer that says what is wrong
/// is {"error": text}. The event stream is not answered here.
boost::asio::awaitable<HTTPResponse> answerRequest(Agent& agent, const HTTPRequest& request);

/// {"error": text} with the status.
HTTPResponse errorResponse(unsigned status, std::string_view message);

/// Returns whether the request comes from a program of this machine. A browser names the host that
/// a page was loaded from and the page's origin, so pages of other sites are recognized, even under
/// a name that resolves to loopback. The agent's own clients send no Origin.
bool isFromThisMachine(const HTTPRequest& request);

}  // namespace zephyl::sandbox
