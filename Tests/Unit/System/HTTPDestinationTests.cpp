#include "System/Network/HTTPDestination.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

TEST(HTTPDestination, HasHostPortAndTarget) {
  const auto destination = HTTPDestination::parse("http://127.0.0.1:8799/api/status?full=1#top");
  ASSERT_TRUE(destination);
  EXPECT_EQ(destination->host, "127.0.0.1");
  EXPECT_EQ(destination->port, 8799);
  EXPECT_EQ(destination->authority, "127.0.0.1:8799");
  EXPECT_EQ(destination->target, "/api/status?full=1");
}

TEST(HTTPDestination, FillsInDefaults) {
  const auto destination = HTTPDestination::parse("HTTP://srv?a=%20b");
  ASSERT_TRUE(destination);
  EXPECT_EQ(destination->port, 80);
  EXPECT_EQ(destination->authority, "srv");
  EXPECT_EQ(destination->target, "/?a=%20b");
  EXPECT_EQ(HTTPDestination::parse("http://srv:/")->port, 80);
}

TEST(HTTPDestination, RemovesTheBracketsOfAnIPv6Address) {
  const auto destination = HTTPDestination::parse("http://[::1]:1/");
  ASSERT_TRUE(destination);
  EXPECT_EQ(destination->host, "::1");
  EXPECT_EQ(destination->authority, "[::1]:1");
}

TEST(HTTPDestination, RefusesUnsupportedAddresses) {
  for (const auto* url :
       {"", "srv", "//srv", "https://srv", "ftp://srv", "http:///path", "http://srv:65536",
        "http://srv:99999", "http://srv:80x/", "http://srv:123456789012345678901", "http://srv /",
        " http://srv", "http://srv/\r\nEvil: 1"}) {
    EXPECT_EQ(HTTPDestination::parse(url), std::nullopt) << url;
  }
}

TEST(HTTPDestination, WritesARequestWithoutABody) {
  const auto destination = HTTPDestination::parse("http://srv:1/a?b");
  EXPECT_EQ(destination->wireForm({.url = "http://srv:1/a?b"}),
            "GET /a?b HTTP/1.1\r\nHost: srv:1\r\nAccept: */*\r\nConnection: close\r\n\r\n");
}

TEST(HTTPDestination, WritesARequestWithABody) {
  const auto destination = HTTPDestination::parse("http://srv/a");
  EXPECT_EQ(
      destination->wireForm(
          {.method = "POST", .url = "http://srv/a", .contentType = "text/plain", .body = "hello"}),
      "POST /a HTTP/1.1\r\nHost: srv\r\nAccept: */*\r\nConnection: close\r\n"
      "Content-Type: text/plain\r\nContent-Length: 5\r\n\r\nhello");
}

TEST(HTTPDestination, SendsAContentLengthForAnEmptyBody) {
  const auto destination = HTTPDestination::parse("http://srv/a");
  const auto text = destination->wireForm({.method = "DELETE", .url = "http://srv/a"});
  EXPECT_NE(text.find("Content-Length: 0\r\n"), std::string::npos) << text;
}

}  // namespace
}  // namespace zephyl
