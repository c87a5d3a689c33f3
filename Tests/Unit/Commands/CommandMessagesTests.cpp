#include "ZephylTray/Commands/Protocol/CommandMessages.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

namespace requests = commandRequests;
using requests::Decision;

template <typename Request>
Request roundTrip(const Request& request) {
  const auto line = encodeCommandRequest(request);
  EXPECT_EQ(line[line.size() - 1], '\n');
  const auto parsed = parseCommandRequest(std::string_view(line).substr(0, line.size() - 1));
  return std::get<Request>(*parsed);
}

TEST(CommandMessages, CarryRequests) {
  EXPECT_EQ(encodeCommandRequest(requests::Status{}), "{\"status\":true}\n");
  EXPECT_EQ(encodeCommandRequest(requests::Join{"inv_v2"}), "{\"join\":\"inv_v2\"}\n");
  EXPECT_EQ(
      roundTrip(requests::Answer{.id = "a", .decision = Decision::always, .confirm = "x"}).confirm,
      "x");
  EXPECT_EQ(roundTrip(requests::Answer{.id = "a", .decision = Decision::once}).decision,
            Decision::once);
  const auto logs = roundTrip(requests::Logs{.server = "Patient Hill", .follow = true});
  EXPECT_EQ(logs.server, "Patient Hill");
  EXPECT_TRUE(logs.follow);
  EXPECT_EQ(roundTrip(requests::Open{.screen = "join"}).screen, "join");
  EXPECT_EQ(roundTrip(requests::RestartTailnet{}).server, std::nullopt);
}

TEST(CommandMessages, RefuseInvalidRequests) {
  for (const auto* line : {"", "status", "{}", "[]", "{\"fly\":true}", "{\"status\":1}",
                           "{\"status\":true,\"quit\":true}", "{\"answer\":{\"id\":\"a\"}}",
                           "{\"answer\":{\"id\":\"a\",\"decision\":\"perhaps\"}}"}) {
    const auto parsed = parseCommandRequest(line);
    ASSERT_FALSE(parsed) << line;
    EXPECT_NE(parsed.error().message.find("restart the tray"), std::string::npos);
  }
}

TEST(CommandMessages, CarryReplies) {
  using Kind = CommandReply::Kind;
  EXPECT_EQ(encodeCommandReply({.kind = Kind::accepted}), R"({"accepted":true})");
  EXPECT_EQ(encodeCommandReply({.kind = Kind::result}), R"({"result":null})");
  const auto event = parseCommandReply(R"({"event":["a line"]})");
  EXPECT_EQ(event->kind, Kind::event);
  EXPECT_EQ(event->value, json::Value(json::Array{"a line"}));
  EXPECT_FALSE(event->isLast());
  EXPECT_TRUE(parseCommandReply(R"({"error":"no"})")->isLast());
  EXPECT_TRUE(parseCommandReply(R"({"result":null})")->isLast());
}

TEST(CommandMessages, RefuseInvalidReplies) {
  for (const auto* line :
       {"", "{}", "[]", "{\"result\":1,\"error\":\"x\"}", "{\"error\":7}", "{\"x\":1}"}) {
    EXPECT_FALSE(parseCommandReply(line)) << line;
  }
}

}  // namespace
}  // namespace zephyl
