#include "Common/Endpoint.hpp"

#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"

namespace zephyl::sandbox {
namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

bool isLoopback(const asio::ip::address& address) {
  if (address.is_v6() && address.to_v6().is_v4_mapped()) {
    return asio::ip::make_address_v4(asio::ip::v4_mapped, address.to_v6()).is_loopback();
  }
  return address.is_loopback();
}

std::optional<tcp::endpoint> parseEndpoint(std::string_view text) {
  const auto colon = text.rfind(':');
  if (colon == std::string_view::npos) return std::nullopt;
  const auto port = parseDecimal(text.substr(colon + 1)).value_or(0);
  auto host = text.substr(0, colon);
  if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
  error_code error;
  const auto address = asio::ip::make_address(std::string(host), error);
  if (error || port < 1 || port > 65535) return std::nullopt;
  return tcp::endpoint(address, static_cast<asio::ip::port_type>(port));
}

Result<tcp::endpoint> parseLoopbackEndpoint(std::string_view text) {
  const auto endpoint = parseEndpoint(text);
  if (!endpoint) return Error{"'", text, "' is not an address and a port"};
  if (!isLoopback(endpoint->address())) return Error{"'", text, "' is not a loopback address"};
  return *endpoint;
}

std::string toText(const tcp::endpoint& endpoint) {
  const auto address = endpoint.address().to_string();
  return endpoint.address().is_v6() ? formatText("[{}]:{}", address, endpoint.port())
                                    : formatText("{}:{}", address, endpoint.port());
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
  const bool isTaken = error == asio::error::address_in_use;
  return Error{"cannot listen on ", toText(endpoint), ": ",
               isTaken ? "another program has that port" : error.message()};
}

}  // namespace zephyl::sandbox
