#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <boost/asio/ip/tcp.hpp>

/// The wire format of SOCKS version 5 (RFC 1928), reduced to the parts that this proxy supports.
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

/// Returns the addresses of the destination: a loopback address itself, and both loopback addresses
/// for "localhost" and names below it. Other destinations have none. Never resolves a name.
std::vector<boost::asio::ip::tcp::endpoint> allowedEndpoints(const Destination& destination);

/// Returns the destination as text that is safe for a log line.
std::string describe(const Destination& destination);

/// Returns the reply for the result of a connect.
Reply replyTo(boost::system::error_code error);

/// Returns the reply's bytes. `bound` is the proxy's own end of the connection.
std::vector<std::uint8_t> encode(Reply reply, const boost::asio::ip::tcp::endpoint& bound);

}  // namespace zephyl::sandbox::socks5
