#include "Tailnet/Daemon/Socks5.hpp"

#include <optional>

#include <boost/asio/error.hpp>

#include "Common/Endpoint.hpp"
#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"

namespace zephyl::sandbox::socks5 {
namespace asio = boost::asio;
using asio::ip::tcp;
namespace {

/// Clients may send an address instead of a name.
std::optional<asio::ip::address> asAddress(const Destination& destination) {
  if (const auto* address = std::get_if<asio::ip::address>(&destination.host)) return *address;
  boost::system::error_code error;
  const auto address = asio::ip::make_address(std::get<std::string>(destination.host), error);
  if (error) return std::nullopt;
  return address;
}

bool isLocalhost(const std::string& name) {
  const auto lower = lowerCased(name);
  return lower == "localhost" || lower.ends_with(".localhost");
}

template <typename Bytes>
void append(std::vector<std::uint8_t>& message, const Bytes& bytes) {
  message.insert(message.end(), bytes.begin(), bytes.end());
}

}  // namespace

std::vector<tcp::endpoint> allowedEndpoints(const Destination& destination) {
  if (const auto address = asAddress(destination)) {
    if (!isLoopback(*address)) return {};
    return {tcp::endpoint(*address, destination.port)};
  }
  if (!isLocalhost(std::get<std::string>(destination.host))) return {};
  return {tcp::endpoint(asio::ip::address_v4::loopback(), destination.port),
          tcp::endpoint(asio::ip::address_v6::loopback(), destination.port)};
}

std::string describe(const Destination& destination) {
  if (const auto address = asAddress(destination)) return toText({*address, destination.port});
  auto name = std::get<std::string>(destination.host);
  for (auto& character : name) {
    if (character <= ' ' || character > '~') character = '?';
  }
  return formatText("{}:{}", name, destination.port);
}

Reply replyTo(boost::system::error_code error) {
  if (!error) return Reply::succeeded;
  if (error == asio::error::connection_refused) return Reply::connectionRefused;
  if (error == asio::error::network_unreachable) return Reply::networkUnreachable;
  if (error == asio::error::host_unreachable || error == asio::error::timed_out) {
    return Reply::hostUnreachable;
  }
  return Reply::generalFailure;
}

std::vector<std::uint8_t> encode(Reply reply, const tcp::endpoint& bound) {
  std::vector<std::uint8_t> message{version, static_cast<std::uint8_t>(reply), 0};
  const auto address = bound.address();
  if (address.is_v6()) {
    message.push_back(static_cast<std::uint8_t>(AddressType::ipv6));
    append(message, address.to_v6().to_bytes());
  } else {
    message.push_back(static_cast<std::uint8_t>(AddressType::ipv4));
    append(message, address.to_v4().to_bytes());
  }
  message.push_back(static_cast<std::uint8_t>(bound.port() >> 8U));
  message.push_back(static_cast<std::uint8_t>(bound.port() & 0xFFU));
  return message;
}

}  // namespace zephyl::sandbox::socks5
