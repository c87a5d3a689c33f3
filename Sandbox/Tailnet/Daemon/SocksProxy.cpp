#include "Tailnet/Daemon/SocksProxy.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include <boost/asio/experimental/awaitable_operators.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/tcp_stream.hpp>

#include "Common/Async.hpp"
#include "Tailnet/Daemon/Socks5.hpp"

namespace zephyl::sandbox {
namespace asio = boost::asio;
namespace beast = boost::beast;
using asio::ip::tcp;
using namespace std::chrono_literals;
namespace {

constexpr auto handshakeTimeout = 10s;
constexpr std::size_t relayBufferBytes = 16'384;

/// A client's request. The destination is absent if its kind of address is not supported.
struct Request {
  std::uint8_t command = 0;
  std::optional<socks5::Destination> destination;
};

asio::awaitable<bool> fill(beast::tcp_stream& client, asio::mutable_buffer bytes) {
  const auto [error, size] = co_await asio::async_read(client, bytes, asTuple);
  co_return !error;
}

asio::awaitable<bool> send(beast::tcp_stream& client, asio::const_buffer bytes) {
  const auto [error, size] = co_await asio::async_write(client, bytes, asTuple);
  co_return !error;
}

asio::awaitable<bool> agreeOnMethod(beast::tcp_stream& client) {
  std::array<std::uint8_t, 2> head{};
  if (!co_await fill(client, asio::buffer(head)) || head[0] != socks5::version) co_return false;
  std::vector<std::uint8_t> methods(head[1]);
  if (!co_await fill(client, asio::buffer(methods))) co_return false;
  const bool agreed =
      std::find(methods.begin(), methods.end(), socks5::noAuthentication) != methods.end();
  const std::array answer{socks5::version,
                          agreed ? socks5::noAuthentication : socks5::noAcceptableMethod};
  const bool sent = co_await send(client, asio::buffer(answer));
  co_return sent&& agreed;
}

template <typename Address>
asio::awaitable<std::optional<asio::ip::address>> readAddress(beast::tcp_stream& client) {
  typename Address::bytes_type bytes{};
  if (!co_await fill(client, asio::buffer(bytes))) co_return std::nullopt;
  co_return Address(bytes);
}

asio::awaitable<std::optional<std::string>> readName(beast::tcp_stream& client) {
  std::uint8_t length = 0;
  if (!co_await fill(client, asio::buffer(&length, 1))) co_return std::nullopt;
  std::string name(length, '\0');
  if (!co_await fill(client, asio::buffer(name))) co_return std::nullopt;
  co_return name;
}

asio::awaitable<std::optional<std::uint16_t>> readPort(beast::tcp_stream& client) {
  std::array<std::uint8_t, 2> bytes{};
  if (!co_await fill(client, asio::buffer(bytes))) co_return std::nullopt;
  co_return static_cast<std::uint16_t>(bytes[0] << 8U | bytes[1]);
}

template <typename Host>
asio::awaitable<std::optional<Request>> readRest(beast::tcp_stream& client, std::uint8_t command,
                                                 std::optional<Host> host) {
  if (!host) co_return std::nullopt;
  const auto port = co_await readPort(client);
  if (!port) co_return std::nullopt;
  co_return Request{command, socks5::Destination{*std::move(host), *port}};
}

/// Returns nullopt if the client does not speak SOCKS 5 or has disconnected.
asio::awaitable<std::optional<Request>> readRequest(beast::tcp_stream& client) {
  using socks5::AddressType;
  std::array<std::uint8_t, 4> head{};
  if (!co_await fill(client, asio::buffer(head)) || head[0] != socks5::version) {
    co_return std::nullopt;
  }
  const auto command = head[1];
  switch (static_cast<AddressType>(head[3])) {
    case AddressType::ipv4:
      co_return co_await readRest(client, command,
                                  co_await readAddress<asio::ip::address_v4>(client));
    case AddressType::ipv6:
      co_return co_await readRest(client, command,
                                  co_await readAddress<asio::ip::address_v6>(client));
    case AddressType::domainName:
      co_return co_await readRest(client, command, co_await readName(client));
  }
  co_return Request{command, std::nullopt};
}

asio::awaitable<socks5::Reply> connect(const Request& request, beast::tcp_stream& server,
                                       const OnRefusal& onRefusal) {
  using socks5::Reply;
  if (!request.destination) co_return Reply::addressTypeNotSupported;
  if (request.command != socks5::connectCommand) co_return Reply::commandNotSupported;
  const auto endpoints = socks5::allowedEndpoints(*request.destination);
  if (endpoints.empty()) {
    onRefusal(socks5::describe(*request.destination));
    co_return Reply::notAllowed;
  }
  server.expires_after(handshakeTimeout);
  const auto [error, endpoint] = co_await server.async_connect(endpoints, asTuple);
  co_return socks5::replyTo(error);
}

asio::awaitable<void> pump(beast::tcp_stream& from, beast::tcp_stream& to) {
  std::array<char, relayBufferBytes> bytes{};
  for (;;) {
    const auto [readError, size] = co_await from.async_read_some(asio::buffer(bytes), asTuple);
    if (readError == asio::error::eof) {
      boost::system::error_code ignored;
      to.socket().shutdown(asio::socket_base::shutdown_send, ignored);
      co_return;
    }
    if (readError) break;
    const auto [writeError, written] =
        co_await asio::async_write(to, asio::buffer(bytes.data(), size), asTuple);
    if (writeError) break;
  }
  from.close();
  to.close();
}

/// Forwards bytes in both directions until both sides have closed. A side that has closed its own
/// direction still receives. An error on either side ends both. A slow reader slows the writer
/// down. The streams must not have a deadline.
asio::awaitable<void> relay(beast::tcp_stream& one, beast::tcp_stream& other) {
  using namespace asio::experimental::awaitable_operators;
  co_await (pump(one, other) && pump(other, one));
}

}  // namespace

asio::awaitable<void> serveSocks(tcp::socket socket, std::shared_ptr<const OnRefusal> onRefusal) {
  beast::tcp_stream client(std::move(socket));
  client.expires_after(handshakeTimeout);
  if (!co_await agreeOnMethod(client)) {
    co_await drain(client);
    co_return;
  }
  const auto request = co_await readRequest(client);
  if (!request) co_return;

  beast::tcp_stream server(client.get_executor());
  const auto reply = co_await connect(*request, server, *onRefusal);
  boost::system::error_code ignored;
  const auto message = socks5::encode(reply, server.socket().local_endpoint(ignored));
  const bool sent = co_await send(client, asio::buffer(message));
  if (!sent || reply != socks5::Reply::succeeded) {
    co_await drain(client);
    co_return;
  }
  client.expires_never();
  server.expires_never();
  co_await relay(client, server);
}

}  // namespace zephyl::sandbox
