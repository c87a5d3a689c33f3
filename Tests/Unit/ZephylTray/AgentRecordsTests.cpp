#include "ZephylTray/AgentRecords.hpp"

#include <gtest/gtest.h>

#include "System/JSON.hpp"

namespace zephyl {
namespace {

template <typename T>
std::string failureOf(std::string_view text) {
  const auto record = json::decodeText<T>(text);
  return record ? "decoded" : record.error().message;
}

TEST(AgentRecords, AStatusNeedsOnlyItsState) {
  const auto status = json::decodeText<AgentStatus>(R"({"state":"enrolled"})");
  EXPECT_EQ(*status, (AgentStatus{.state = AgentState::enrolled}));
}

TEST(AgentRecords, AStateThatIsNotOneOfTheFourFails) {
  for (const auto* state : {"connecting", "connected", "enrolled", "disconnected"}) {
    const auto text = std::string(R"({"state":")") + state + "\"}";
    EXPECT_EQ(failureOf<AgentStatus>(text), "decoded");
  }
  EXPECT_EQ(failureOf<AgentStatus>(R"({"state":"Enrolled"})"),
            "state: not one of the known values");
  EXPECT_EQ(failureOf<AgentStatus>(R"({"state":"connected","connections":[{"serverId":"a"}]})"),
            "connections[0].state: missing");
}

constexpr auto bareActivity =
    R"({"busy":true,"inFlight":2,"counters":{"reads":4},"recent":[],"indexing":[]})";

TEST(AgentRecords, AnActivityWithoutApprovalsAndGrantsHasNone) {
  const auto activity = json::decodeText<Activity>(bareActivity);
  ASSERT_TRUE(activity);
  EXPECT_TRUE(activity->pendingApprovals.empty());
  EXPECT_TRUE(activity->escapeGrants.empty());
  EXPECT_EQ(activity->counters.at("reads"), 4);
  EXPECT_FALSE(activity->model);
}

TEST(AgentRecords, NullCountsAsNoModelNoApprovalsAndNoGrants) {
  const auto activity = json::decodeText<Activity>(
      R"({"busy":false,"inFlight":0,"counters":{},"recent":[],"indexing":[],
          "model":null,"pendingApprovals":null,"escapeGrants":null})");
  EXPECT_EQ(*activity, Activity{});
}

TEST(AgentRecords, AnActivityWithoutRecentFails) {
  EXPECT_EQ(failureOf<Activity>(R"({"busy":true,"inFlight":2,"counters":{},"indexing":[]})"),
            "recent: missing");
}

TEST(AgentRecords, ARootWithoutServersDiffersFromOneWithAnEmptyList) {
  const auto without = json::decodeText<SharedRoot>(R"({"root":"/a","name":"a"})");
  const auto empty = json::decodeText<SharedRoot>(R"({"root":"/a","name":"a","servers":[]})");
  EXPECT_FALSE(without->servers);
  EXPECT_NE(*without, *empty);
}

TEST(AgentRecords, IndexProgressNeedsItsFileCountButNotItsSize) {
  EXPECT_EQ(failureOf<IndexProgress>(
                R"({"root":"/a","ready":true,"embedding":false,"filesEmbedded":1,
                    "chunksEmbedded":2,"lexicalFiles":3,"ragEnabled":true})"),
            "decoded");
  EXPECT_EQ(failureOf<IndexProgress>(
                R"({"root":"/a","ready":true,"embedding":false,"filesEmbedded":1,
                    "chunksEmbedded":2,"ragEnabled":true})"),
            "lexicalFiles: missing");
}

TEST(AgentRecords, DecodeEveryFieldOfAWholeActivityAndIgnoreTheRest) {
  const auto activity = json::decodeText<Activity>(R"({
    "busy":true,"inFlight":1,"counters":{},"extra":1,
    "recent":[{"tool":"read","ok":true,"at":1.5,"path":"/p","extra":[]}],
    "indexing":[],
    "model":{"phase":"downloading","downloadedBytes":5,"totalBytes":10},
    "pendingApprovals":[{"id":"1","kind":"shell","tool":"run","target":"ls /","root":"/a",
       "reasons":[{"code":"c","detail":"d","extra":{}}],"userName":"Ana","createdAt":7}],
    "escapeGrants":[{"path":"/etc","root":"/a","kind":"path","grantedAt":9,"grantedBy":"Ana"}]})");
  ASSERT_TRUE(activity) << activity.error().message;
  EXPECT_EQ(activity->recent.front(), (ActivityEvent{"read", "/p", std::nullopt, true, 1.5}));
  EXPECT_EQ(activity->model, (ModelStatus{ModelPhase::downloading, 5, 10, std::nullopt}));
  const PendingApproval approval{.id = "1",
                                 .kind = "shell",
                                 .tool = "run",
                                 .target = "ls /",
                                 .root = "/a",
                                 .reasons = {{"c", "d"}},
                                 .userName = "Ana",
                                 .createdAt = 7};
  EXPECT_EQ(activity->pendingApprovals, std::vector{approval});
  EXPECT_EQ(activity->escapeGrants, (std::vector<EscapeGrant>{{"/etc", "/a", "path", 9, "Ana"}}));
}

}  // namespace
}  // namespace zephyl
