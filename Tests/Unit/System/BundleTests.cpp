#include "System/Files/Bundle.hpp"

#include <filesystem>

#include <gtest/gtest.h>

#include "Support/TemporaryDirectory.hpp"

namespace zephyl {
namespace {

class BundleTest : public ::testing::Test {
 protected:
  Bundle installed() { return Bundle(prefix_.write("bin/zephyl-tray", "", true)); }
  void writeInformation(const std::string& text) {
    prefix_.write("share/zephyl-tray/Info.json", text);
  }

  test::TemporaryDirectory prefix_;
};

TEST_F(BundleTest, HasItsResourcesBesideTheDirectoryOfTheExecutable) {
  const Bundle bundle = installed();
  EXPECT_EQ(bundle.resourceDirectory(), std::nullopt);
  std::filesystem::create_directories(prefix_ / "share/zephyl-tray");
  EXPECT_EQ(bundle.resourceDirectory(), prefix_ / "share/zephyl-tray");
  EXPECT_EQ(bundle.executable(), prefix_ / "bin/zephyl-tray");
}

TEST_F(BundleTest, HasNoResourcesIfTheExecutableIsElsewhere) {
  writeInformation("{}");
  for (const auto* name : {"build/zephyl-tray", "bin/zephyl-tray-dialogs", "bin/x/zephyl-tray"}) {
    EXPECT_EQ(Bundle(prefix_ / name).resourceDirectory(), std::nullopt) << name;
  }
  EXPECT_EQ(Bundle(std::nullopt).resourceDirectory(), std::nullopt);
}

TEST_F(BundleTest, AFileIsNoResourceDirectory) {
  prefix_.write("share/zephyl-tray", "");
  EXPECT_EQ(installed().resourceDirectory(), std::nullopt);
}

TEST_F(BundleTest, ReadsItsInformationAfreshEachTime) {
  const Bundle bundle = installed();
  EXPECT_EQ(bundle.identifier(), std::nullopt);
  writeInformation(R"({"CFBundleIdentifier": "com.zephyl.tray", "SUFeedURL": "https://feed"})");
  EXPECT_EQ(bundle.identifier(), "com.zephyl.tray");
  EXPECT_EQ(bundle.information("SUFeedURL"), "https://feed");
  writeInformation(R"({"CFBundleIdentifier": "another"})");
  EXPECT_EQ(bundle.identifier(), "another");
  EXPECT_EQ(bundle.information("SUFeedURL"), std::nullopt);
}

TEST_F(BundleTest, InformationIsNulloptUnlessItIsANonEmptyText) {
  writeInformation(R"({"empty": "", "number": 1, "null": null})");
  for (const auto* key : {"empty", "number", "null", "absent"}) {
    EXPECT_EQ(installed().information(key), std::nullopt) << key;
  }
  for (const auto* text : {"", "{", "[]", R"(["a"])"}) {
    writeInformation(text);
    EXPECT_EQ(installed().information("a"), std::nullopt) << text;
  }
}

TEST_F(BundleTest, AListIsATextOrAnArrayOfNonEmptyTexts) {
  using Texts = std::vector<std::string>;
  writeInformation(R"({"one": "a b", "several": ["a", "", "b c"], "none": [], "nothing": ["", ""],
                       "mixed": ["a", 1], "empty": "", "number": 1, "null": null})");
  EXPECT_EQ(installed().informationList("one"), Texts{"a b"});
  EXPECT_EQ(installed().informationList("several"), (Texts{"a", "b c"}));
  for (const auto* key : {"none", "nothing", "mixed", "empty", "number", "null", "absent"}) {
    EXPECT_EQ(installed().informationList(key), Texts()) << key;
  }
  EXPECT_EQ(installed().information("several"), std::nullopt);
  EXPECT_EQ(Bundle(std::nullopt).informationList("one"), Texts());
}

TEST(Bundle, KnowsTheRunningExecutable) {
  const auto executable = Bundle::runningExecutable();
  ASSERT_TRUE(executable);
  EXPECT_TRUE(std::filesystem::equivalent(*executable, "/proc/self/exe"));
}

TEST(Bundle, TheMainOneIsTheOneThatWasSet) {
  EXPECT_EQ(Bundle::main().executable(), std::nullopt);
  Bundle::setMain(Bundle("/p/bin/zephyl-tray"));
  EXPECT_EQ(Bundle::main().executable(), "/p/bin/zephyl-tray");
  Bundle::setMain(Bundle(std::nullopt));
}

}  // namespace
}  // namespace zephyl
