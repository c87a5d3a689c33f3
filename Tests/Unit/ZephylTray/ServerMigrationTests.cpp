#include "ZephylTray/Registry/ServerMigration.hpp"

#include <gtest/gtest.h>

namespace zephyl::migration {
namespace {

TEST(ServerMigration, CreatesAnAddressFromAHost) {
  EXPECT_EQ(legacyAddress("srv", std::nullopt), "http://srv:5173");
  EXPECT_EQ(legacyAddress(" srv\t", std::nullopt), "http://srv:5173");
  EXPECT_EQ(legacyAddress("srv:8080", std::nullopt), "http://srv:8080");
  EXPECT_EQ(legacyAddress(" ", std::nullopt), std::nullopt);
  EXPECT_EQ(legacyAddress("", ""), std::nullopt);
}

TEST(ServerMigration, PrefersAWebTargetToAHost) {
  EXPECT_EQ(legacyAddress("srv", " https://web "), "https://web");
  EXPECT_EQ(legacyAddress("", "https://web"), "https://web");
  EXPECT_EQ(legacyAddress("srv", " "), "http://srv:5173");
}

TEST(ServerMigration, FindsNoSingleServerIfNoneWasJoined) {
  for (const auto* host : {"", "  ", "zephyl", " zephyl "}) {
    EXPECT_EQ(singleServer("id", host, std::nullopt), std::nullopt) << host;
    EXPECT_EQ(singleServer("id", host, ""), std::nullopt) << host;
  }
}

TEST(ServerMigration, CreatesAnEntryForTheSingleServer) {
  ServerEntry expected{.id = "id",
                       .ordinal = 1,
                       .address = "http://srv:5173",
                       .ports = {1055, 8800, "127.100.0.1", 8080},
                       .enabled = true};
  EXPECT_EQ(singleServer("id", " srv ", std::nullopt), expected);
  expected.tailnetFingerprint = "";
  EXPECT_EQ(singleServer("id", "srv", ""), expected);
  expected.tailnetFingerprint = " ABC";
  expected.address = "http://zephyl:5173";
  EXPECT_EQ(singleServer("id", "zephyl", " ABC"), expected);
  expected.address.reset();
  EXPECT_EQ(singleServer("id", "", " ABC"), expected);
}

/// Merges addresses of a file into entries without one, which are named "a", "b" and so on.
std::vector<std::optional<std::string>> folded(std::string_view file, bool changes) {
  std::vector<ServerEntry> entries = {{.id = "a"}, {.id = "b"}, {.id = "c", .address = "kept"}};
  EXPECT_EQ(foldAddressing(*json::parse(file), entries), changes) << file;
  return {entries[0].address, entries[1].address, entries[2].address};
}

using Addresses = std::vector<std::optional<std::string>>;

TEST(ServerMigration, MergesHostAndWebTargetIntoTheAddress) {
  EXPECT_EQ(folded(R"([{"id": "b", "serverHost": "srv"},
                       {"id": "a", "serverHost": "srv", "webTarget": "https://web"},
                       {"id": "c", "serverHost": "other"}])",
                   true),
            (Addresses{"https://web", "http://srv:5173", "kept"}));
}

TEST(ServerMigration, MergesNothingThatIsAbsent) {
  const Addresses unchanged = {std::nullopt, std::nullopt, "kept"};
  for (const auto* file : {
           R"([])",
           R"({"id": "a", "serverHost": "srv"})",
           R"([{"id": "a", "serverHost": "srv"}, 1])",
           R"([{"id": "a"}, {"id": "b"}])",
           R"([{"id": "a", "address": null, "serverHost": "srv"}])",
           R"([{"id": 1, "serverHost": "srv"}, {"serverHost": "srv"}])",
           R"([{"id": "unknown", "serverHost": "srv"}])",
           R"([{"id": "a", "serverHost": 1, "webTarget": ["https://web"]}])",
           R"([{"id": "a", "serverHost": " ", "webTarget": " "}])",
           R"([{"id": "c", "serverHost": "srv"}])",
       }) {
    EXPECT_EQ(folded(file, false), unchanged) << file;
  }
}

TEST(ServerMigration, IfOneEntryIsOldAllWithoutAnAddressAreMerged) {
  EXPECT_EQ(folded(R"([{"id": "a", "address": null, "serverHost": "srv"},
                       {"id": "b", "serverHost": "srv:1"}])",
                   true),
            (Addresses{"http://srv:5173", "http://srv:1", "kept"}));
}

TEST(ServerMigration, NumbersTheEntriesWithoutAnOrdinal) {
  std::vector<ServerEntry> entries = {{}, {.ordinal = 4}, {}, {.ordinal = 2}};
  EXPECT_TRUE(reclaimNaming(entries));
  EXPECT_EQ(entries[0].ordinal, 5);
  EXPECT_EQ(entries[1].ordinal, 4);
  EXPECT_EQ(entries[2].ordinal, 6);
  EXPECT_EQ(entries[3].ordinal, 2);
}

TEST(ServerMigration, RemovesGeneratedLabels) {
  std::vector<ServerEntry> entries = {
      {.label = " Zephyl ", .address = "http://srv:5173"},
      {.label = "srv:5173\t", .address = " http://srv:5173/x "},
      {.label = "srv", .address = "https://srv"},
      {.label = "srv", .ordinal = 9, .address = "http://srv:5173"},
      {.label = "Zephyl", .ordinal = 8},
      {.label = "zephyl"},
      {.label = "srv", .address = "srv"},
  };
  EXPECT_TRUE(reclaimNaming(entries));
  std::vector<std::string> labels;
  labels.reserve(entries.size());
  for (const auto& entry : entries) labels.push_back(entry.label);
  EXPECT_EQ(labels, (std::vector<std::string>{"", "", "", "srv", "", "zephyl", "srv"}));
}

TEST(ServerMigration, KeepsTheNamesIfEveryEntryHasAnOrdinal) {
  std::vector<ServerEntry> entries = {{.label = "Zephyl", .ordinal = 1}};
  EXPECT_FALSE(reclaimNaming(entries));
  EXPECT_EQ(entries[0].label, "Zephyl");
  entries.clear();
  EXPECT_FALSE(reclaimNaming(entries));
}

}  // namespace
}  // namespace zephyl::migration
