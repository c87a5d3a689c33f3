#include "System/Network/SocketOwner.hpp"

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

#include <arpa/inet.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/FileDescriptor.hpp"

namespace zephyl {

namespace {

/// An IP address in the kernel's form: one 32-bit word, or four.
struct Address {
  int family = AF_UNSPEC;
  std::array<std::uint32_t, 4> words{};

  static std::optional<Address> parse(const std::string& text) {
    Address address;
    for (const int family : {AF_INET, AF_INET6}) {
      if (::inet_pton(family, text.c_str(), address.words.data()) != 1) continue;
      address.family = family;
      return address;
    }
    return std::nullopt;
  }
};

// Query by netlink

struct DiagnosticRequest {
  nlmsghdr header{};
  inet_diag_req_v2 query{};
};

/// Returns a query for the socket that a connection to this address and port would reach.
DiagnosticRequest requestFor(const Address& address, std::uint16_t port) {
  DiagnosticRequest request;
  request.header.nlmsg_len = sizeof request;
  request.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  request.header.nlmsg_flags = NLM_F_REQUEST;
  request.query.sdiag_family = static_cast<std::uint8_t>(address.family);
  request.query.sdiag_protocol = IPPROTO_TCP;
  request.query.id.idiag_sport = htons(port);
  std::memcpy(request.query.id.idiag_src, address.words.data(), sizeof request.query.id.idiag_src);
  request.query.id.idiag_cookie[0] = INET_DIAG_NOCOOKIE;
  request.query.id.idiag_cookie[1] = INET_DIAG_NOCOOKIE;
  return request;
}

/// Returns nullopt if the kernel does not know the socket or does not support the query.
std::optional<uid_t> queryKernel(const Address& address, std::uint16_t port) {
  const FileDescriptor netlink(
      ::socket(AF_NETLINK, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
  if (!netlink) return std::nullopt;
  const DiagnosticRequest request = requestFor(address, port);
  if (::send(netlink.get(), &request, sizeof request, 0) != sizeof request) return std::nullopt;
  // The kernel has answered by the time that `send` returns.
  alignas(nlmsghdr) std::array<char, 4096> buffer{};
  const auto size = ::recv(netlink.get(), buffer.data(), buffer.size(), 0);
  constexpr auto least = static_cast<ssize_t>(NLMSG_LENGTH(sizeof(inet_diag_msg)));
  const auto* header = reinterpret_cast<const nlmsghdr*>(buffer.data());
  if (size < least || header->nlmsg_type != SOCK_DIAG_BY_FAMILY) return std::nullopt;
  inet_diag_msg message{};
  std::memcpy(&message, buffer.data() + NLMSG_HDRLEN, sizeof message);
  constexpr std::uint8_t listening = 10;
  if (message.idiag_state != listening) return std::nullopt;
  return message.idiag_uid;
}

// Query by tables

std::string hexadecimal(const Address& address, std::uint16_t port) {
  const std::size_t words = address.family == AF_INET ? 1 : 4;
  std::string text;
  for (std::size_t i = 0; i < words; ++i) text += formatText("{:08X}", address.words[i]);
  return formatText("{}:{:04X}", text, port);
}

/// Returns the owner of the socket that listens at `local`, an address in the form of the tables.
std::optional<uid_t> findListener(std::string_view table, const std::string& local) {
  enum Column : std::size_t { localAddress = 1, state = 3, owner = 7 };
  constexpr std::string_view listening = "0A";
  for (const auto line : splitNonEmpty(table, '\n')) {
    const auto columns = splitNonEmpty(line, ' ');
    if (columns.size() <= owner) continue;
    if (columns[localAddress] != local || columns[state] != listening) continue;
    uid_t user = 0;
    const auto text = columns[owner];
    const auto [end, failure] = std::from_chars(text.begin(), text.end(), user);
    if (failure == std::errc() && end == text.end()) return user;
  }
  return std::nullopt;
}

/// Returns the IPv6 addresses whose sockets also accept connections to an IPv4 address.
std::vector<std::string> dualStackAddresses(const Address& address, std::uint16_t port) {
  Address mapped{.family = AF_INET6, .words = {0, 0, htonl(0xffff), address.words[0]}};
  return {hexadecimal(mapped, port), hexadecimal(Address{.family = AF_INET6}, port)};
}

std::string contentsOf(const char* path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

std::optional<uid_t> listeningUser(const SocketTables& tables, const std::string& address,
                                   std::uint16_t port) {
  const auto parsed = Address::parse(address);
  if (!parsed) return std::nullopt;
  const bool isIPv4 = parsed->family == AF_INET;
  // The kernel prefers the socket that is bound most specifically.
  const std::string& own = isIPv4 ? tables.tcp : tables.tcp6;
  for (const auto& bound : {*parsed, Address{.family = parsed->family}}) {
    if (const auto user = findListener(own, hexadecimal(bound, port))) return user;
  }
  if (!isIPv4) return std::nullopt;
  for (const auto& bound : dualStackAddresses(*parsed, port)) {
    if (const auto user = findListener(tables.tcp6, bound)) return user;
  }
  return std::nullopt;
}

Result<uid_t> listeningUser(const std::string& address, std::uint16_t port) {
  const auto parsed = Address::parse(address);
  if (!parsed) return Error{address, " is not a numeric address"};
  if (const auto user = queryKernel(*parsed, port)) return *user;
  const SocketTables tables{.tcp = contentsOf("/proc/net/tcp"),
                            .tcp6 = contentsOf("/proc/net/tcp6")};
  if (const auto user = listeningUser(tables, address, port)) return *user;
  return Error{"could not determine the owner of ", address, ":", std::to_string(port)};
}

}  // namespace zephyl
