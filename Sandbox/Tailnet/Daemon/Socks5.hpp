#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <boost/asio/ip/tcp.hpp>

/// The wire form of SOCKS version 5 (RFC 1928), as far as this proxy speaks it.
namespace zephyl::sandbox::socks5 {

constexpr std::uint8_t version = 5;
constexpr std::uint8_t noAuthentication = 0x00;
constexpr std::uint8_t noAcceptableMethod = 0xFF;
constexpr std::uint8_t connectCommand = 1;

enum class AddressType : std::uint8_t { ipv4 = 1, domainName = 3, ipv6 = 4 };

enum class Reply : std::uint8_t {
  succeeded = 0,
  generalFailure = 1,
  notAllowed = 2,
  networkUnreachable = 3,
  hostUnreachable = 4,
  connectionRefused = 5,
  commandNotSupported = 7,
  addressTypeNotSupported = 8,
};

struct Destination {
  /// An address, or a name as the client sent it.
  std::variant<boost::asio::ip::address, std::string> host;
  std::uint16_t port = 0;
};

/// Where the destination may be reached: a loopback address itself, both loopback addresses for
/// "localhost" and names below it, nowhere else. No name is ever looked up.
std::vector<boost::asio::ip::tcp::endpoint> allowedEndpoints(const Destination& destination);

/// Fit for a log line, whatever the client sent.
std::string describe(const Destination& destination);

/// The reply that fits the outcome of a connect.
Reply replyTo(boost::system::error_code error);

/// The reply's bytes; `bound` is the proxy's own end of the connection.
std::vector<std::uint8_t> encode(Reply reply, const boost::asio::ip::tcp::endpoint& bound);

}  // namespace zephyl::sandbox::socks5
