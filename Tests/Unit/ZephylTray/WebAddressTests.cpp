#include "ZephylTray/Actions/WebAddress.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

TEST(WebAddress, IsTheInternalNameForPort80IfItResolves) {
  EXPECT_EQ(webAddress("100.64.0.7:80", true), "http://zephyl.internal");
  EXPECT_EQ(webAddress("100.64.0.7:80", false), "http://100.64.0.7:80");
}

TEST(WebAddress, IsTheAddressItselfForAnyOtherPort) {
  EXPECT_EQ(webAddress("127.0.0.1:8080", true), "http://127.0.0.1:8080");
  EXPECT_EQ(webAddress("127.0.0.1:1080", false), "http://127.0.0.1:1080");
}

}  // namespace
}  // namespace zephyl
