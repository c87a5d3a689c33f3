#include "Helpers/Updates/Program/Address.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

TEST(UpdateAddress, IsHttpsOrThisMachine) {
  for (const auto* good : {"https://updates.example/feed", "HTTPS://updates.example:8443/a?b",
                           "http://127.0.0.1:80/", "http://localhost/a", "http://[::1]:1/a"}) {
    EXPECT_TRUE(checkAddress(good).has_value()) << good;
  }
  for (const auto* bad :
       {"http://updates.example/", "http://127.0.0.1.example/", "http://127.0.0.1@updates.example/",
        "http://localhost.example/", "http://0.0.0.0/", "file:///etc/passwd", "ftp://127.0.0.1/",
        "//updates.example/", "feed", "", "https:///feed"}) {
    EXPECT_TRUE(checkAddress(bad).has_error()) << bad;
  }
}

TEST(UpdateAddress, NeverLeadsFromHttpsToPlainHttp) {
  const std::string encrypted = "https://updates.example/a";
  EXPECT_TRUE(checkRedirect(encrypted, "https://elsewhere.example/b").has_value());
  EXPECT_TRUE(checkRedirect("http://127.0.0.1/a", "http://127.0.0.1/b").has_value());
  EXPECT_TRUE(checkRedirect("http://127.0.0.1/a", encrypted).has_value());
  EXPECT_TRUE(checkRedirect(encrypted, "http://updates.example/a").has_error());
  EXPECT_EQ(checkRedirect(encrypted, "http://127.0.0.1/a").error().message,
            "The server redirects from https to plain http.");
}

}  // namespace
}  // namespace zephyl
