#include "ZephylTray/Control/Route.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

struct RouteCase {
  const char* method;
  const char* path;
  Route route;
};

class RouteTemplate : public ::testing::TestWithParam<RouteCase> {};

TEST_P(RouteTemplate, FollowsFromMethodAndPath) {
  const auto& [method, path, expected] = GetParam();
  EXPECT_EQ(route(method, path), expected) << method << " " << path;
}

INSTANTIATE_TEST_SUITE_P(
    AllForms, RouteTemplate,
    ::testing::Values(RouteCase{"GET", "/status", {"GET /status", ""}},
                      RouteCase{"GET", "//status//", {"GET /status", ""}},
                      RouteCase{"GET", "/", {"GET /", ""}}, RouteCase{"GET", "", {"GET /", ""}},
                      RouteCase{"GET", "/servers", {"GET /servers", ""}},
                      RouteCase{"GET", "/servers/", {"GET /servers", ""}},
                      RouteCase{"POST", "/servers/abc/label", {"POST /servers/:id/label", "abc"}},
                      RouteCase{"POST", "//servers/abc/label/", {"POST /servers/:id/label", "abc"}},
                      RouteCase{"DELETE", "/servers/a%20b", {"DELETE /servers/:id", "a%20b"}},
                      RouteCase{
                          "POST", "/servers/a/roots/scope", {"POST /servers/:id/roots/scope", "a"}},
                      RouteCase{"POST", "/Servers/abc/label", {"POST /Servers/abc/label", ""}},
                      RouteCase{"POST", "/x/servers/abc", {"POST /x/servers/abc", ""}}));

}  // namespace
}  // namespace zephyl
