#include "ZephylTray/Commands/Client/DefaultsCommand.hpp"

#include "StandardStreams.hpp"
#include "Support/LogCapture.hpp"
#include "Support/TemporaryDirectory.hpp"
#include "System/Files/UserDefaults.hpp"
#include "ZephylTray/Config/Config.hpp"

namespace zephyl {
namespace {

using ValueType = CommandArguments::ValueType;

class DefaultsCommandTest : public ::testing::Test {
 protected:
  using Operands = std::vector<std::string>;

  /// Runs an operation, which must succeed, and returns its output.
  static std::string run(Operands operands, std::optional<ValueType> type = std::nullopt) {
    return test::outputOf([&] {
      EXPECT_EQ(
          runDefaults(
              {.verb = CommandVerb::defaults, .operands = std::move(operands), .valueType = type}),
          0);
    });
  }
  /// Returns the message of an operation, which must fail.
  static std::string failureOf(Operands operands, std::optional<ValueType> type = std::nullopt) {
    return test::logOf([&] {
      EXPECT_EQ(
          runDefaults(
              {.verb = CommandVerb::defaults, .operands = std::move(operands), .valueType = type}),
          1);
    });
  }

  test::TemporaryDirectory directory_;
  test::ScopedVariable configuration_{"XDG_CONFIG_HOME", directory_.path()};
};

TEST_F(DefaultsCommandTest, ReadsWhatWasWritten) {
  run({"write", "trayPort", "8800"});
  run({"write", "repoRoot", "/data"});
  EXPECT_EQ(Config::defaults().integer("trayPort"), 8800);
  EXPECT_EQ(Config::defaults().string("repoRoot"), "/data");
  EXPECT_EQ(run({"read", "trayPort"}), "8800\n");
  EXPECT_EQ(run({"read", "repoRoot"}), "/data\n");
  const auto all = run({"read"});
  EXPECT_LT(all.find("\"repoRoot\""), all.find("\"trayPort\"")) << all;
}

TEST_F(DefaultsCommandTest, ReadsAStringAsJSON) {
  run({"write", "repoRoot", "/data"});
  EXPECT_EQ(test::outputOf([] {
              runDefaults(
                  {.verb = CommandVerb::defaults, .operands = {"read", "repoRoot"}, .json = true});
            }),
            "\"/data\"\n");
}

TEST_F(DefaultsCommandTest, ANumberIsStoredAsAString) {
  run({"write", "name", "7"}, ValueType::string);
  EXPECT_EQ(Config::defaults().string("name"), "7");
  run({"write", "name", "8"});
  EXPECT_EQ(Config::defaults().string("name"), "8") << "the type is kept";
  run({"write", "name", "9"}, ValueType::integer);
  EXPECT_EQ(Config::defaults().integer("name"), 9);
}

TEST_F(DefaultsCommandTest, RefusesATextInPlaceOfANumber) {
  run({"write", "trayPort", "8800"});
  EXPECT_NE(failureOf({"write", "trayPort", "80a"}).find("“80a” is not"), std::string::npos);
  EXPECT_NE(failureOf({"write", "other", "80a"}, ValueType::integer).find("not an integer"),
            std::string::npos);
  EXPECT_NE(failureOf({"write", "other", "\xff"}), "");
  EXPECT_NE(failureOf({"write", "\xff", "other"}), "");
  EXPECT_EQ(Config::defaults().integer("trayPort"), 8800);
  run({"write", "trayPort", "80a"}, ValueType::string);
  EXPECT_EQ(Config::defaults().string("trayPort"), "80a");
}

TEST_F(DefaultsCommandTest, DeletesASetting) {
  run({"write", "trayPort", "8800"});
  run({"delete", "trayPort"});
  EXPECT_EQ(Config::defaults().integer("trayPort"), std::nullopt);
  EXPECT_EQ(failureOf({"delete", "trayPort"}), "zephyl-tray: “trayPort” is not set.\n");
  EXPECT_EQ(failureOf({"read", "trayPort"}), "zephyl-tray: “trayPort” is not set.\n");
}

TEST_F(DefaultsCommandTest, KeepsAFileThatCannotBeDecoded) {
  directory_.write("com.zephyl.tray/defaults.json", "{broken");
  EXPECT_NE(failureOf({"read"}), "");
  EXPECT_NE(failureOf({"write", "trayPort", "8800"}), "");
  EXPECT_NE(failureOf({"delete", "trayPort"}), "");
}

}  // namespace
}  // namespace zephyl
