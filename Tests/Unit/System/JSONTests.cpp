#include "System/Data/JSON.hpp"

#include <array>

#include <gtest/gtest.h>

namespace zephyl::json {
namespace {

enum class Colour { red, darkGreen };
constexpr std::array<std::string_view, 2> enumNames(Colour) {
  return {"red", "darkGreen"};
}

struct Leaf {
  std::string name;
  std::optional<std::int64_t> size;
  bool operator==(const Leaf&) const = default;

  template <typename Self, typename Fields>
  static void describe(Self& self, Fields& fields) {
    fields("name", self.name);
    fields("size", self.size);
  }
};

struct Tree {
  Colour colour = Colour::red;
  std::vector<Leaf> leaves;
  std::map<std::string, std::int64_t> counters;
  double height = 0;
  bool healthy = false;
  std::vector<std::string> tags;
  bool operator==(const Tree&) const = default;

  template <typename Self, typename Fields>
  static void describe(Self& self, Fields& fields) {
    fields("colour", self.colour);
    fields("leaves", self.leaves);
    fields("counters", self.counters);
    fields("height", self.height);
    fields("healthy", self.healthy);
    fields.orDefault("tags", self.tags);
  }
};

constexpr auto wholeTree = R"({"colour":"darkGreen","leaves":[{"name":"a"},{"name":"b","size":3}],
  "counters":{"x":1},"height":2,"healthy":true,"tags":["t"],"unknown":{"deep":[1,2]}})";

std::string failureOf(std::string_view text) {
  return decodeText<Tree>(text).error().message;
}

TEST(JSON, DecodesARecordAndIgnoresUnknownKeys) {
  const auto tree = decodeText<Tree>(wholeTree);
  ASSERT_TRUE(tree);
  EXPECT_EQ(tree->colour, Colour::darkGreen);
  EXPECT_EQ(tree->leaves, (std::vector<Leaf>{{"a", std::nullopt}, {"b", 3}}));
  EXPECT_EQ(tree->counters.at("x"), 1);
  EXPECT_EQ(tree->height, 2.0);
  EXPECT_TRUE(tree->healthy);
}

TEST(JSON, EncodesWhatItDecodesAndLeavesAbsentOptionalsOut) {
  const Tree tree = *decodeText<Tree>(wholeTree);
  const Value encoded = encode(tree);
  EXPECT_EQ(*decode<Tree>(encoded), tree);
  EXPECT_FALSE(encoded.at("leaves").at(0).as_object().contains("size"));
}

TEST(JSON, NullCountsAsAbsentForOptionalAndDefaultedFieldsOnly) {
  EXPECT_EQ(decodeText<Leaf>(R"({"name":"a","size":null})")->size, std::nullopt);
  EXPECT_EQ(failureOf(R"({"colour":null})"), "colour: not a string");
  auto tree = *parse(wholeTree);
  tree.as_object()["tags"] = nullptr;
  EXPECT_TRUE(decode<Tree>(tree)->tags.empty());
}

TEST(JSON, NamesThePathOfTheOffendingKey) {
  EXPECT_EQ(failureOf(R"({"colour":"red"})"), "leaves: missing");
  EXPECT_EQ(failureOf(R"({"colour":"red","leaves":[{"name":"a"},{"name":7}]})"),
            "leaves[1].name: not a string");
  EXPECT_EQ(failureOf(R"({"colour":"blue"})"), "colour: not one of the known values");
  EXPECT_EQ(failureOf(R"({"colour":"red","leaves":[],"counters":{"n":"1"}})"),
            "counters.n: not an integer of 64 bits");
  EXPECT_EQ(failureOf("[]"), "not an object");
}

TEST(JSON, AcceptsIntegersHoweverWrittenAndRefusesWhatDoesNotFit) {
  const auto size = [](std::string_view number) {
    return decodeText<Leaf>(R"({"name":"a","size":)" + std::string(number) + "}");
  };
  EXPECT_EQ(size("9e3")->size, 9000);
  EXPECT_EQ(size("-9223372036854775808")->size, INT64_MIN);
  for (const auto* bad : {"1.5", "9223372036854775808", "1e300", "true", "\"1\""}) {
    EXPECT_EQ(size(bad).error().message, "size: not an integer of 64 bits") << bad;
  }
}

TEST(JSON, RefusesTextThatIsNotJSON) {
  for (const auto* bad : {"", "{", "{\"a\":1} x", "\"\xff\"", "nul"}) {
    EXPECT_TRUE(parse(bad).has_error()) << bad;
  }
  EXPECT_TRUE(parse(std::string(100000, '[')).has_error());
}

TEST(JSON, PrettyTextSortsTheKeysOfEveryObject) {
  EXPECT_EQ(prettySorted(*parse(R"({"b":[1,{"d":null,"c":"é\n"}],"a":{},"e":[]})")),
            "{\n  \"a\": {},\n  \"b\": [\n    1,\n    {\n      \"c\": \"é\\n\",\n"
            "      \"d\": null\n    }\n  ],\n  \"e\": []\n}\n");
}

}  // namespace
}  // namespace zephyl::json
