#include "System/Data/JSON.hpp"

#include <array>

#include <gtest/gtest.h>

namespace zephyl::json {
namespace {

enum class Color { red, darkGreen };
BOOST_DESCRIBE_ENUM(Color, red, darkGreen)

struct Leaf {
  std::string name;
  std::optional<std::int64_t> size;
  bool operator==(const Leaf&) const = default;
};
BOOST_DESCRIBE_STRUCT(Leaf, (), (name, size))

struct Tree {
  Color color = Color::red;
  std::vector<Leaf> leaves;
  std::map<std::string, std::int64_t> counters;
  double height = 0;
  bool healthy = false;
  std::vector<std::string> tags;
  bool operator==(const Tree&) const = default;
};
BOOST_DESCRIBE_STRUCT(Tree, (), (color, leaves, counters, height, healthy, tags))
constexpr auto fieldsWithDefault(const Tree*) {
  return std::tuple(&Tree::tags);
}

struct Ping {
  std::int64_t value = 0;
  bool operator==(const Ping&) const = default;
};
BOOST_DESCRIBE_STRUCT(Ping, (), (value))

struct Close {
  bool operator==(const Close&) const = default;
};
BOOST_DESCRIBE_STRUCT(Close, (), ())

using Order = std::variant<Ping, Leaf, Close>;
constexpr std::array<std::string_view, 3> messageNames(const Order*) {
  return {"ping", "plant", "close"};
}

constexpr auto wholeTree = R"({"color":"darkGreen","leaves":[{"name":"a"},{"name":"b","size":3}],
  "counters":{"x":1},"height":2,"healthy":true,"tags":["t"],"unknown":{"deep":[1,2]}})";

std::string failureOf(std::string_view text) {
  return decodeText<Tree>(text).error().message;
}

TEST(JSON, DecodesARecordAndIgnoresUnknownKeys) {
  const auto tree = decodeText<Tree>(wholeTree);
  ASSERT_TRUE(tree);
  EXPECT_EQ(tree->color, Color::darkGreen);
  EXPECT_EQ(tree->leaves, (std::vector<Leaf>{{"a", std::nullopt}, {"b", 3}}));
  EXPECT_EQ(tree->counters.at("x"), 1);
  EXPECT_EQ(tree->height, 2.0);
  EXPECT_TRUE(tree->healthy);
}

TEST(JSON, EncodesDecodedValuesAndOmitsAbsentOptionals) {
  const Tree tree = *decodeText<Tree>(wholeTree);
  const Value encoded = encode(tree);
  EXPECT_EQ(*decode<Tree>(encoded), tree);
  EXPECT_FALSE(encoded.at("leaves").at(0).as_object().contains("size"));
}

TEST(JSON, NullCountsAsAbsentForOptionalAndDefaultedFieldsOnly) {
  EXPECT_EQ(decodeText<Leaf>(R"({"name":"a","size":null})")->size, std::nullopt);
  EXPECT_EQ(failureOf(R"({"color":null})"), "color: not a string");
  auto tree = *parse(wholeTree);
  tree.as_object()["tags"] = nullptr;
  EXPECT_TRUE(decode<Tree>(tree)->tags.empty());
}

TEST(JSON, NamesThePathOfTheOffendingKey) {
  EXPECT_EQ(failureOf(R"({"color":"red"})"), "leaves: missing");
  EXPECT_EQ(failureOf(R"({"color":"red","leaves":[{"name":"a"},{"name":7}]})"),
            "leaves[1].name: not a string");
  EXPECT_EQ(failureOf(R"({"color":"blue"})"), "color: not one of the known values");
  EXPECT_EQ(failureOf(R"({"color":"red","leaves":[],"counters":{"n":"1"}})"),
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

TEST(JSON, AMessageIsAnObjectWhoseOnlyKeyNamesIt) {
  const std::vector<std::pair<Order, std::string>> orders = {
      {Ping{7}, R"({"ping":7})"},
      {Leaf{.name = "a"}, R"({"plant":{"name":"a"}})"},
      {Close{}, R"({"close":true})"}};
  for (const auto& [order, text] : orders) {
    EXPECT_EQ(compact(encode(order)), text);
    const auto decoded = decodeText<Order>(text);
    ASSERT_TRUE(decoded) << decoded.error().message;
    EXPECT_EQ(*decoded, order);
  }
  EXPECT_EQ(decodeText<Order>(R"({"close":null,"ping":1,"priority":2})").value(), Order(Ping{1}));
}

TEST(JSON, RefusesAMessageThatIsNotExactlyOne) {
  const auto failure = [](std::string_view text) {
    const auto order = decodeText<Order>(text);
    return order ? "none" : order.error().message;
  };
  EXPECT_EQ(failure("{}"), "not one of the known messages");
  EXPECT_EQ(failure(R"({"pong":1})"), "not one of the known messages");
  EXPECT_EQ(failure(R"({"ping":1,"close":true})"), "more than one message");
  EXPECT_EQ(failure("[]"), "not an object");
  EXPECT_EQ(failure(R"({"plant":{}})"), "plant.name: missing");
  EXPECT_EQ(failure(R"({"ping":true})"), "ping: not an integer of 64 bits");
  EXPECT_EQ(failure(R"({"close":1})"), "close: not true");
}

TEST(JSON, RefusesAnIntegerThatIsOutOfItsTypesRange) {
  EXPECT_EQ(decodeText<std::size_t>("3").value(), 3U);
  EXPECT_EQ(decodeText<std::size_t>("-1").error().message, "out of range");
  EXPECT_EQ(decodeText<int>("4294967296").error().message, "out of range");
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
