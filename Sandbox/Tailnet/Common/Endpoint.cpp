#include "Tailnet/Common/Endpoint.hpp"

#include <charconv>
#include <optional>

#include <fmt/format.h>

namespace zephyl::sandbox {
namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;
namespace {

std::optional<unsigned short> parsePort(std::string_view digits) {
  unsigned short port = 0;
  const auto [end, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), port);
  if (failure != std::errc() || end != digits.data() + digits.size() || port == 0) {
    return std::nullopt;
  }
  return port;
}

std::string_view withoutBrackets(std::string_view host) {
  const bool bracketed = host.starts_with('[') && host.ends_with(']');
  return bracketed ? host.substr(1, host.size() - 2) : host;
}

}  // namespace

bool isLoopback(const asio::ip::address& address) {
  if (address.is_v6() && address.to_v6().is_v4_mapped()) {
    return asio::ip::make_address_v4(asio::ip::v4_mapped, address.to_v6()).is_loopback();
  }
  return address.is_loopback();
}

Result<tcp::endpoint> parseLoopbackEndpoint(std::string_view text) {
  const auto colon = text.rfind(':');
  const auto host = withoutBrackets(text.substr(0, colon));
  const auto port =
      colon == std::string_view::npos ? std::nullopt : parsePort(text.substr(colon + 1));
  error_code error;
  const auto address = asio::ip::make_address(std::string(host), error);
  if (error || !port) return Failure{fmt::format("'{}' is not an address and a port", text)};
  if (!isLoopback(address)) return Failure{fmt::format("'{}' is not a loopback address", text)};
  return tcp::endpoint(address, *port);
}

std::string toText(const tcp::endpoint& endpoint) {
  const auto address = endpoint.address().to_string();
  return endpoint.address().is_v6() ? fmt::format("[{}]:{}", address, endpoint.port())
                                    : fmt::format("{}:{}", address, endpoint.port());
}

Result<tcp::acceptor> listenOn(const asio::any_io_executor& executor,
                               const tcp::endpoint& endpoint) {
  tcp::acceptor acceptor(executor);
  error_code error;
  acceptor.open(endpoint.protocol(), error);
  if (!error) acceptor.set_option(tcp::acceptor::reuse_address(true), error);
  if (!error) acceptor.bind(endpoint, error);
  if (!error) acceptor.listen(asio::socket_base::max_listen_connections, error);
  if (!error) return acceptor;
  return Failure{fmt::format("cannot listen on {}: {}", toText(endpoint), error.message())};
}

}  // namespace zephyl::sandbox
