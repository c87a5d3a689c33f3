#include "Agent/Connections.hpp"

#include <algorithm>
#include <charconv>
#include <utility>

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <fmt/format.h>

#include "Agent/ObjectReader.hpp"

namespace zephyl::sandbox {
namespace asio = boost::asio;
using asio::ip::tcp;
using namespace std::chrono_literals;
namespace {

constexpr auto connectPatience = 1s;

std::optional<tcp::endpoint> parseEndpoint(std::string_view text) {
  const auto colon = text.rfind(':');
  if (colon == std::string_view::npos) return std::nullopt;
  const auto digits = text.substr(colon + 1);
  unsigned short port = 0;
  const auto [end, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), port);
  boost::system::error_code error;
  const auto address = asio::ip::make_address(std::string(text.substr(0, colon)), error);
  if (error || failure != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  return tcp::endpoint(address, port);
}

}  // namespace

/// Looks at one SOCKS address again and again, and tells each time why nothing can be reached
/// there; nothing to tell when something can.
class Connections::Lookout {
 public:
  using OnLook = std::function<void(const std::optional<std::string>&)>;

  Lookout(const asio::any_io_executor& executor, std::string socks5,
          std::chrono::milliseconds interval, OnLook onLook)
      : socks5_(std::move(socks5)),
        endpoint_(parseEndpoint(socks5_)),
        interval_(interval),
        onLook_(std::move(onLook)),
        socket_(executor),
        timer_(executor) {}

  void look() {
    if (!endpoint_) {
      onLook_(fmt::format("\"{}\" is not an address and a port", socks5_));
      return;
    }
    socket_.async_connect(*endpoint_, [this](boost::system::error_code error) { onAnswer(error); });
    timer_.expires_after(connectPatience);
    timer_.async_wait([this](boost::system::error_code error) {
      if (!error) socket_.close();
    });
  }

 private:
  void onAnswer(boost::system::error_code error) {
    const bool silent = error == asio::error::operation_aborted;
    if (error || reachedItself()) {
      onLook_(fmt::format("{} {}", silent ? "nothing answers on" : "nothing listens on", socks5_));
    } else {
      onLook_(std::nullopt);
    }
    socket_.close();
    timer_.expires_after(interval_);
    timer_.async_wait([this](boost::system::error_code failure) {
      if (!failure) look();
    });
  }

  /// A socket that happens to be given the very port that it connects to finds itself there.
  bool reachedItself() const {
    boost::system::error_code ignored;
    return socket_.local_endpoint(ignored) == *endpoint_;
  }

  std::string socks5_;
  std::optional<tcp::endpoint> endpoint_;
  std::chrono::milliseconds interval_;
  OnLook onLook_;
  tcp::socket socket_;
  asio::steady_timer timer_;
};

Outcome<std::vector<ServerAddress>> parseServers(std::string_view text) {
  std::vector<ServerAddress> servers;
  if (text.empty()) return servers;
  boost::system::error_code error;
  const auto value = boost::json::parse(text, error);
  if (error || !value.is_array()) return badRequest("not a JSON list");
  for (const auto& element : value.get_array()) {
    ObjectReader reader(element);
    servers.push_back({.url = reader.string("url"),
                       .label = reader.string("label"),
                       .socks5 = reader.optionalString("socks5"),
                       .agentId = reader.optionalString("agentId")});
    if (reader.problem()) return *reader.problem();
  }
  return servers;
}

Connections::Connections(const asio::any_io_executor& executor, std::vector<ServerAddress> servers,
                         std::string machineId, std::chrono::milliseconds interval,
                         OnChange onChange)
    : machineId_(std::move(machineId)), onChange_(std::move(onChange)) {
  for (const auto& server : servers) {
    AgentConnection connection{.serverId = server.agentId.value_or(server.label)};
    if (!server.socks5) {
      connection.state = AgentState::disconnected;
      connection.lastError = "no tailnet";
    }
    connections_.push_back(std::move(connection));
  }
  for (std::size_t i = 0; i < servers.size(); ++i) {
    if (!servers[i].socks5) continue;
    const auto settleThis = [this, i](const auto& error) { settle(connections_[i], error); };
    lookouts_.push_back(
        std::make_unique<Lookout>(executor, *servers[i].socks5, interval, settleThis));
  }
  for (const auto& lookout : lookouts_) lookout->look();
}

Connections::~Connections() = default;

AgentState Connections::overall() const {
  const auto any = [this](AgentState state) {
    return std::any_of(
        connections_.begin(), connections_.end(),
        [state](const AgentConnection& connection) { return connection.state == state; });
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
