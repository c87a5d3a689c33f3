#include "Agent/Connections.hpp"

#include <algorithm>
#include <utility>

#include <boost/beast/core/tcp_stream.hpp>

#include "Common/Async.hpp"
#include "Common/Endpoint.hpp"

namespace zephyl::sandbox {
namespace asio = boost::asio;
using asio::ip::tcp;
namespace {

constexpr std::chrono::seconds connectTimeout(1);

/// Returns nullopt if a program accepts connections at the endpoint, else the error.
asio::awaitable<std::optional<std::string>> tryToReach(tcp::endpoint endpoint, std::string name) {
  boost::beast::tcp_stream stream(co_await asio::this_coro::executor);
  stream.expires_after(connectTimeout);
  const auto [error] = co_await stream.async_connect(endpoint, asTuple);
  if (error == boost::beast::error::timeout) co_return "nothing answers on " + name;
  boost::system::error_code ignored;
  // A socket that gets the port to which it connects is connected to itself.
  const bool isItself = stream.socket().local_endpoint(ignored) == endpoint;
  if (error || isItself) co_return "nothing listens on " + name;
  co_return std::nullopt;
}

}  // namespace

Connections::Connections(const asio::any_io_executor& executor,
                         const std::vector<ServerAddress>& servers, std::string machineId,
                         std::chrono::milliseconds interval, OnChange onChange)
    : machineId_(std::move(machineId)), onChange_(std::move(onChange)) {
  for (const auto& server : servers) {
    AgentConnection connection{.serverId = server.agentId.value_or(server.label)};
    if (server.socks5) {
      asio::co_spawn(executor, watch(connections_.size(), *server.socks5, interval),
                     asio::detached);
    } else {
      connection.state = AgentState::disconnected;
      connection.lastError = "no tailnet";
    }
    connections_.push_back(std::move(connection));
  }
}

asio::awaitable<void> Connections::watch(std::size_t index, std::string socks5,
                                         std::chrono::milliseconds interval) {
  const auto endpoint = parseEndpoint(socks5);
  if (!endpoint) {
    settle(connections_[index], "\"" + socks5 + "\" is not an address and a port");
    co_return;
  }
  for (;;) {
    const auto error = co_await tryToReach(*endpoint, socks5);
    settle(connections_[index], error);
    co_await pause(interval);
  }
}

AgentState Connections::overall() const {
  const auto any = [this](AgentState state) {
    return std::ranges::find(connections_, state, &AgentConnection::state) != connections_.end();
  };
  if (any(AgentState::enrolled)) return AgentState::enrolled;
  if (any(AgentState::connected)) return AgentState::connected;
  return connections_.empty() ? AgentState::disconnected : AgentState::connecting;
}

void Connections::settle(AgentConnection& connection, const std::optional<std::string>& error) {
  const auto before = std::pair(connection.state, connection.lastError);
  if (error) {
    connection.state = AgentState::connecting;
    connection.machineId.reset();
  } else {
    const bool wasUp = connection.state != AgentState::connecting;
    connection.state = wasUp ? AgentState::enrolled : AgentState::connected;
    connection.machineId = machineId_;
  }
  connection.lastError = error;
  if (before != std::pair(connection.state, connection.lastError)) onChange_(connection);
}

}  // namespace zephyl::sandbox
