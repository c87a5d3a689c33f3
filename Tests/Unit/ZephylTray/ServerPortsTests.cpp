#include "ZephylTray/Registry/ServerPorts.hpp"

#include <algorithm>

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "Support/NoMoreDescriptors.hpp"
#include "System/Files/FileDescriptor.hpp"

namespace zephyl {
namespace {

/// Another program's listener on 127.0.0.1. Port 0 means any free port.
class Listener {
 public:
  explicit Listener(std::int64_t port = 0) {
    const int enabled = 1;
    ::setsockopt(socket_.get(), SOL_SOCKET, SO_REUSEADDR, &enabled, sizeof enabled);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    socklen_t length = sizeof address;
    listening_ = ::bind(socket_.get(), generic, length) == 0 && ::listen(socket_.get(), 1) == 0 &&
                 ::getsockname(socket_.get(), generic, &length) == 0;
    port_ = ntohs(address.sin_port);
  }

  [[nodiscard]] bool isListening() const { return listening_; }
  [[nodiscard]] std::int64_t port() const { return port_; }

 private:
  FileDescriptor socket_{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
  bool listening_ = false;
  std::int64_t port_ = 0;
};

bool areFree(std::initializer_list<std::int64_t> ports) {
  return std::ranges::all_of(ports, [](auto port) { return Listener(port).isListening(); });
}

/// Returns all candidate ports below `end`, so that the search begins at `end`.
std::set<std::int64_t> everythingBelow(std::int64_t end) {
  std::set<std::int64_t> ports;
  for (std::int64_t port = 1055; port < end; ++port) ports.insert(ports.end(), port);
  return ports;
}

ServerPorts withHost(std::string host) {
  return {.tunnelHost = std::move(host)};
}

std::vector<ServerPorts> aliasesUpTo(int last) {
  std::vector<ServerPorts> existing;
  for (int index = 1; index <= last; ++index) {
    existing.push_back(withHost("127.100.0." + std::to_string(index)));
  }
  return existing;
}

TEST(ServerPorts, DeriveTheAliasIndexFromTheLastComponentOfTheHost) {
  EXPECT_EQ(withHost("127.100.0.7").aliasIndex(), 7);
  EXPECT_EQ(withHost("127.100.0.12..").aliasIndex(), 12);
  EXPECT_EQ(withHost("+9").aliasIndex(), 9);
  EXPECT_EQ(withHost("host.-3").aliasIndex(), -3);
  for (const auto* host : {"", "...", "localhost", "127.100.0.x", "127.100.0.7 ", "0.0x1",
                           "127.100.0.99999999999999999999"}) {
    EXPECT_EQ(withHost(host).aliasIndex(), 1) << host;
  }
}

TEST(ServerPorts, DeriveTheFallbackFromTheAliasWhenThereIsNone) {
  EXPECT_EQ(withHost("127.100.0.12").tunnelFallbackAddr(), "127.0.0.1:8091");
  EXPECT_EQ(withHost("127.100.0.1").tunnelFallbackAddr(), "127.0.0.1:8080");
  EXPECT_EQ(withHost("127.100.0.2").tunnelFallbackAddr(), "127.0.0.1:8081");
  EXPECT_EQ(withHost("127.100.0.-9223372036854775808").tunnelFallbackAddr(), "127.0.0.1:8080");
  EXPECT_EQ(withHost("127.100.0.9223372036854775807").tunnelFallbackAddr(),
            "127.0.0.1:9223372036854783886");
  auto ports = withHost("127.100.0.12");
  ports.tunnelFallback = 9000;
  EXPECT_EQ(ports.tunnelFallbackAddr(), "127.0.0.1:9000");
}

TEST(ServerPorts, OfTheSingleServerAreFixed) {
  EXPECT_EQ(ServerPorts::ofSingleServer(), (ServerPorts{1055, 8800, "127.100.0.1", 8080}));
}

TEST(ServerPorts, AreTheFirstThatNoServerOrProgramUses) {
  if (!areFree({1057, 1058, 8800, 8802, 8080, 8081})) GTEST_SKIP() << "these ports are taken here";
  const std::vector<ServerPorts> existing = {
      {.socks = 1055, .shim = 8801, .tunnelHost = "127.100.0.2", .tunnelFallback = 8080},
      {.socks = 1056, .shim = 1, .tunnelHost = "127.100.0.1", .tunnelFallback = std::nullopt}};
  EXPECT_EQ(ServerPorts::allocate(existing, {}), (ServerPorts{1057, 8800, "127.100.0.3", 8081}));
  const Listener other(1057);
  ASSERT_TRUE(other.isListening());
  EXPECT_EQ(ServerPorts::allocate(existing, {8800, 8081}).socks, 1058);
  EXPECT_EQ(ServerPorts::allocate(existing, {8800}).shim, 8802);
}

TEST(ServerPorts, AreNeverReservedOrInUse) {
  const Listener other;
  const auto ports = ServerPorts::allocate({}, everythingBelow(other.port()));
  EXPECT_GT(ports.socks, other.port());
  EXPECT_GT(ports.shim, other.port());
  EXPECT_GT(ports.tunnelFallback, other.port());
}

TEST(ServerPorts, AreAssumedFreeIfProbingIsImpossible) {
  const Listener other;
  const auto reserved = everythingBelow(other.port());
  const test::NoMoreDescriptors limit;
  const auto ports = ServerPorts::allocate({}, reserved);
  EXPECT_EQ(ports.socks, other.port());
  EXPECT_EQ(ports.shim, other.port() + 1);
  EXPECT_EQ(ports.tunnelFallback, other.port());
}

TEST(ServerPorts, TheShimIsNeverTheProxyOfTheSameServer) {
  const auto ports = ServerPorts::allocate({}, everythingBelow(Listener().port()));
  EXPECT_GT(ports.shim, ports.socks);
}

TEST(ServerPorts, UseTheFirstGapAmongTheAliases) {
  auto existing = aliasesUpTo(5);
  existing.erase(existing.begin() + 2);
  existing.push_back(withHost("elsewhere"));
  EXPECT_EQ(ServerPorts::allocate(existing, {}).tunnelHost, "127.100.0.3");
}

TEST(ServerPorts, ShareTheLastAliasWhenAllAreTaken) {
  EXPECT_EQ(ServerPorts::allocate(aliasesUpTo(248), {}).tunnelHost, "127.100.0.249");
  EXPECT_EQ(ServerPorts::allocate(aliasesUpTo(249), {}).tunnelHost, "127.100.0.250");
  EXPECT_EQ(ServerPorts::allocate(aliasesUpTo(250), {}).tunnelHost, "127.100.0.250");
}

TEST(ServerPortsDeathTest, EndTheProcessWhenNoneIsLeft) {
  EXPECT_DEATH(ServerPorts::allocate({}, everythingBelow(65536)),
               "no free local port at or above 1055 for another server");
}

}  // namespace
}  // namespace zephyl
