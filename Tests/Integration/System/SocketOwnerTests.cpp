#include "System/Network/SocketOwner.hpp"

#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include <unistd.h>

#include "Support/ForeignListener.hpp"
#include "Support/RawClient.hpp"

namespace zephyl {
namespace {

using test::ForeignListener;
using test::listenOn;

std::string contentsOf(const char* path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// Expects this owner both from a query of the kernel and from its tables.
void expectOwner(const std::string& address, int port, uid_t owner) {
  const auto number = static_cast<std::uint16_t>(port);
  const auto asked = listeningUser(address, number);
  ASSERT_TRUE(asked) << asked.error().message;
  EXPECT_EQ(*asked, owner);
  const SocketTables tables{contentsOf("/proc/net/tcp"), contentsOf("/proc/net/tcp6")};
  EXPECT_EQ(listeningUser(tables, address, number), owner);
}

TEST(SocketOwner, IsTheUserWhoListens) {
  const int port = test::freePort();
  const auto socket = listenOn("127.0.0.1", port);
  ASSERT_TRUE(socket);
  expectOwner("127.0.0.1", port, ::geteuid());
}

TEST(SocketOwner, IsFoundWhicheverAddressTheListenerIsBoundTo) {
  for (const char* bound : {"0.0.0.0", "::", "::ffff:127.0.0.1"}) {
    const int port = test::freePort();
    const auto socket = listenOn(bound, port);
    if (!socket) GTEST_SKIP() << "this system has no IPv6";
    expectOwner("127.0.0.1", port, ::geteuid());
  }
}

TEST(SocketOwner, IsFoundOnTheLoopbackAddressOfIPv6) {
  const int port = test::freePort();
  const auto socket = listenOn("::1", port);
  if (!socket) GTEST_SKIP() << "this system has no IPv6";
  expectOwner("::1", port, ::geteuid());
  EXPECT_FALSE(listeningUser("127.0.0.1", static_cast<std::uint16_t>(port)));
}

TEST(SocketOwner, IsUnknownIfNothingListens) {
  const auto port = static_cast<std::uint16_t>(test::freePort());
  const auto owner = listeningUser("127.0.0.1", port);
  ASSERT_FALSE(owner);
  EXPECT_EQ(owner.error().message,
            "could not determine the owner of 127.0.0.1:" + std::to_string(port));
  EXPECT_FALSE(listeningUser("localhost", port)) << "not a numeric address";
}

TEST(SocketOwner, IsNotDerivedFromAConnectionOfThePort) {
  const int port = test::freePort();
  auto socket = listenOn("127.0.0.1", port);
  const test::RawClient client(port);
  ASSERT_TRUE(client.connected());
  const FileDescriptor accepted(::accept(socket.get(), nullptr, nullptr));
  socket.reset();
  EXPECT_FALSE(listeningUser("127.0.0.1", static_cast<std::uint16_t>(port)));
}

TEST(SocketOwner, CanBeAnotherUser) {
  const ForeignListener other;
  if (!other.port()) GTEST_SKIP() << "needs root, to listen as another user";
  expectOwner("127.0.0.1", *other.port(), ForeignListener::user);
}

/// Tables of a kernel on a little-endian machine.
const SocketTables tables{
    .tcp =
        "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid\n"
        "   0: 0100007F:225F 00000000:0000 0A 00000000:00000000 00:00000000 00000000  1001 0 7\n"
        "   1: 0100007F:225F 0100007F:9C40 01 00000000:00000000 00:00000000 00000000  1002 0 8\n"
        "   2: 00000000:2260 00000000:0000 0A 00000000:00000000 00:00000000 00000000  1003 0 9\n"
        "   3: 0100007F:2261 00000000:0000 0A 00000000:00000000 00:00000000 00000000  none 0 9\n"
        "   4: 0100007F:2262\n",
    .tcp6 =
        "  sl  local_address                         remote_address                        st\n"
        "   0: 00000000000000000000000000000000:225F 00000000000000000000000000000000:0000 0A "
        "00000000:00000000 00:00000000 00000000  1004 0 7\n"
        "   1: 00000000000000000000000001000000:2263 00000000000000000000000000000000:0000 0A "
        "00000000:00000000 00:00000000 00000000  1005 0 8\n"};

TEST(SocketOwnerTables, PreferTheMostSpecificListener) {
  if (htonl(1) == 1) GTEST_SKIP() << "the tables are from a little-endian machine";
  EXPECT_EQ(listeningUser(tables, "127.0.0.1", 0x225F), 1001);
  EXPECT_EQ(listeningUser(tables, "127.0.0.2", 0x225F), 1004);
  EXPECT_EQ(listeningUser(tables, "127.0.0.1", 0x2260), 1003);
  EXPECT_EQ(listeningUser(tables, "::1", 0x2263), 1005);
  EXPECT_EQ(listeningUser(tables, "::1", 0x225F), 1004);
}

TEST(SocketOwnerTables, GiveNoOwnerIfTheyCannotBeParsed) {
  for (const std::uint16_t port : {0x2261, 0x2262, 0x2264}) {
    EXPECT_EQ(listeningUser(tables, "127.0.0.1", port), std::nullopt) << port;
  }
  EXPECT_EQ(listeningUser(SocketTables{}, "127.0.0.1", 0x225F), std::nullopt);
}

}  // namespace
}  // namespace zephyl
