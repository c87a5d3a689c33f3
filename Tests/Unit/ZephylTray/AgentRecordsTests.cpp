#include "ZephylTray/Agent/AgentRecords.hpp"

#include <cstdint>
#include <set>

#include <gtest/gtest.h>

#include "System/Data/Format.hpp"
#include "System/Data/JSON.hpp"

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

TEST(AgentRecords, AnUnknownStateFails) {
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

/// Expects that exactly these keys of `whole` may be missing or null, and that no key may have
/// another type.
template <typename T>
void expectOptional(const std::set<std::string>& optionalKeys, std::string_view whole) {
  const auto record = json::parse(whole)->as_object();
  EXPECT_TRUE(json::decode<T>(record)) << whole;
  for (const auto& [key, value] : record) {
    const bool optional = optionalKeys.contains(std::string(key));
    auto changed = record;
    changed.erase(key);
    EXPECT_EQ(json::decode<T>(changed).has_value(), optional) << key << " is missing";
    changed[key] = nullptr;
    EXPECT_EQ(json::decode<T>(changed).has_value(), optional) << key << " is null";
    changed[key] = json::Array{json::Array()};
    EXPECT_FALSE(json::decode<T>(changed)) << key << " is a list of lists";
  }
}

TEST(AgentRecords, RequireEveryKeyThatIsNotOptionalWithItsType) {
  expectOptional<AgentStatus>({"machineId", "connections"},
                              R"({"state":"connected","machineId":"m","connections":[]})");
  expectOptional<AgentConnection>(
      {"machineId", "lastError"},
      R"({"serverId":"s","state":"connected","machineId":"m","lastError":"e"})");
  expectOptional<SharedRoot>({"servers"}, R"({"root":"/a","name":"a","servers":["s"]})");
  expectOptional<Activity>(
      {"model", "pendingApprovals", "escapeGrants"},
      R"({"busy":true,"inFlight":1,"counters":{"a":1},"recent":[],"indexing":[],
          "model":{"phase":"ready","downloadedBytes":1,"totalBytes":1},
          "pendingApprovals":[],"escapeGrants":[]})");
  expectOptional<ActivityEvent>({"path", "detail"},
                                R"({"tool":"t","path":"p","detail":"d","ok":true,"at":1})");
  expectOptional<IndexProgress>({"indexBytes"},
                                R"({"root":"/a","ready":true,"embedding":true,"filesEmbedded":1,
          "chunksEmbedded":1,"lexicalFiles":1,"ragEnabled":true,"indexBytes":1})");
  expectOptional<ModelStatus>(
      {"error"}, R"({"phase":"failed","downloadedBytes":1,"totalBytes":1,"error":"e"})");
  expectOptional<PendingApproval>({"userName", "chatTitle"},
                                  R"({"id":"1","kind":"k","tool":"t","target":"x","root":"/a",
          "reasons":[],"userName":"u","chatTitle":"c","createdAt":1})");
  expectOptional<EscapeReason>({}, R"({"code":"c","detail":"d"})");
  expectOptional<EscapeGrant>(
      {"grantedBy"}, R"({"path":"/p","root":"/a","kind":"k","grantedAt":1,"grantedBy":"u"})");
}

TEST(AgentRecords, AnUnknownPhaseFails) {
  for (const auto* phase : {"absent", "checking", "downloading", "ready", "failed"}) {
    const auto text = formatText(R"({{"phase":"{}","downloadedBytes":0,"totalBytes":0}})", phase);
    EXPECT_EQ(failureOf<ModelStatus>(text), "decoded");
  }
  EXPECT_EQ(failureOf<ModelStatus>(R"({"phase":"","downloadedBytes":0,"totalBytes":0})"),
            "phase: not one of the known values");
}

TEST(AgentRecords, AnIntegerHas64BitsAndNoFraction) {
  const auto withBytes = [](const std::string& number) {
    return R"({"phase":"ready","downloadedBytes":0,"totalBytes":)" + number + "}";
  };
  EXPECT_EQ(json::decodeText<ModelStatus>(withBytes("9223372036854775807"))->totalBytes, INT64_MAX);
  for (const auto* number : {"9223372036854775808", "0.5", "true", "\"1\""}) {
    EXPECT_EQ(failureOf<ModelStatus>(withBytes(number)), "totalBytes: not an integer of 64 bits");
  }
}

TEST(AgentRecords, DecodeAllFieldsOfAnActivityAndIgnoreUnknownOnes) {
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
