#pragma once

#include <string>

#include <boost/asio/awaitable.hpp>

#include "Agent/Agent.hpp"

namespace zephyl::sandbox {

struct ApiRequest {
  std::string method;
  /// As in the request line, still encoded.
  std::string target;
  std::string body;
};

struct ApiAnswer {
  int status = 200;
  /// JSON.
  std::string body;
  /// For status 405: the methods that there are.
  std::string allow = {};
};

/// The agent's HTTP API without the HTTP: turns a request into a call of the agent and the outcome
/// into JSON. Whatever a request holds, it has an answer; one that says what is wrong is
/// {"error": text}. The event stream is the server's.
class Api {
 public:
  using OnAnswer = std::function<void(ApiAnswer)>;

  explicit Api(Agent& agent) : agent_(agent) {}

  /// Answers at once, or later on the same thread.
  void answer(const ApiRequest& request, const OnAnswer& onAnswer);

 private:
  Agent& agent_;
};

}  // namespace zephyl::sandbox
