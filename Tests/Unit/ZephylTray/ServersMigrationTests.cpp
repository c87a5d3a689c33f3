#include "ServersFixture.hpp"
#include "Support/FileSizeLimit.hpp"
#include "Support/LogCapture.hpp"
#include "Support/NoMoreDescriptors.hpp"
#include "System/Files/UserDefaults.hpp"
#include "ZephylTray/Config/Config.hpp"

namespace fs = std::filesystem;

namespace zephyl {
namespace {

using ServersMigrationTest = test::ServersFixture;
using Labels = std::vector<std::string>;

// Migrations

TEST_F(ServersMigrationTest, AFirstLaunchMigratesNothingWhenNothingWasJoined) {
  Config::defaults().setString("serverHost", " zephyl ");
  EXPECT_EQ(test::logOf([] { Servers::migrateIfNeeded(); }), "");
  EXPECT_FALSE(fileExists(path()));
}

TEST_F(ServersMigrationTest, AFirstLaunchMigratesTheSingleServerWithItsState) {
  Config::defaults().setString("serverHost", "srv:80");
  Config::defaults().setString("tailnetFingerprint", "ABC");
  world_.directory().write("data/Zephyl/tailnet/state", "s3cret");
  const auto log = test::logOf([] { Servers::migrateIfNeeded(); });
  ASSERT_EQ(Servers::all().size(), 1U);
  const auto migrated = Servers::all()[0];
  EXPECT_EQ(migrated.id.size(), 36U);
  EXPECT_EQ(migrated, (ServerEntry{.id = migrated.id,
                                   .ordinal = 1,
                                   .address = "http://srv:80",
                                   .tailnetFingerprint = "ABC",
                                   .ports = {1055, 8800, "127.100.0.1", 8080},
                                   .enabled = true}));
  const auto state = Servers::tailnetStateDir(migrated.id);
  EXPECT_EQ(*readFile(state + "/state"), "s3cret");
  EXPECT_FALSE(fileExists(world_.baseDirectory() + "/tailnet"));
  EXPECT_EQ(fs::status(parentDirectory(state)).permissions(), fs::perms::owner_all);
  EXPECT_EQ(log, "[tray] migrated tailnet state to " + state +
                     "\n[tray] migrated to multi-server layout as Zephyl 1 (" + migrated.id +
                     ")\n");
  EXPECT_EQ(Config::defaults().string("serverHost"), "srv:80");

  EXPECT_EQ(test::logOf([] { Servers::migrateIfNeeded(); }), "");
  EXPECT_EQ(Servers::all().entries(), std::vector<ServerEntry>{migrated});
}

TEST_F(ServersMigrationTest, AFirstLaunchContinuesIfTheStateCannotBeMoved) {
  Config::defaults().setString("tailnetFingerprint", "ABC");
  world_.directory().write("data/Zephyl/tailnet/state", "s3cret");
  world_.directory().write("data/Zephyl/servers", "in the way");
  const auto log = test::logOf([] { Servers::migrateIfNeeded(); });
  EXPECT_TRUE(log.starts_with("[tray] could not move tailnet state: ")) << log;
  EXPECT_EQ(Servers::all().size(), 1U);
  EXPECT_TRUE(fileExists(world_.baseDirectory() + "/tailnet/state"));
}

TEST_F(ServersMigrationTest, AFirstLaunchThatCannotSaveLeavesTheStateToTheNext) {
  Config::defaults().setString("tailnetFingerprint", "ABC");
  const std::string state = world_.directory().write("data/Zephyl/tailnet/state", "s3cret");
  const auto log = test::logOf([] {
    const test::FileSizeLimit limit(0);
    Servers::migrateIfNeeded();
  });
  EXPECT_NE(log.find("could not write servers.json: "), std::string::npos) << log;
  EXPECT_EQ(log.find("multi-server layout"), std::string::npos) << log;
  EXPECT_EQ(*readFile(state), "s3cret");
  EXPECT_TRUE(Servers::all().empty());
  reopen();
  Servers::migrateIfNeeded();
  EXPECT_EQ(Servers::all().size(), 1U);
  EXPECT_FALSE(fileExists(state));
}

TEST_F(ServersMigrationTest, AFirstLaunchInAShortageLeavesTheStateToTheNext) {
  Config::defaults().setString("tailnetFingerprint", "ABC");
  const std::string state = world_.directory().write("data/Zephyl/tailnet/state", "s3cret");
  const auto log = test::logOf([] {
    const test::NoMoreDescriptors limit;
    Servers::migrateIfNeeded();
  });
  EXPECT_EQ(log, "[tray] could not migrate to multi-server layout: " + Config::defaults().path() +
                     ": Too many open files\n");
  EXPECT_EQ(*readFile(state), "s3cret");
  EXPECT_FALSE(fileExists(path()));
  reopen();
  Servers::migrateIfNeeded();
  EXPECT_EQ(Servers::all().size(), 1U);
}

constexpr auto olderFile = R"([{"id": "a", "label": "srv:8080", "agentId": "", "enabled": true,
    "ports": {"socks": 1055, "shim": 8800, "tunnelHost": "127.100.0.1"},
    "serverHost": "srv:8080", "webTarget": " "}])";

TEST_F(ServersMigrationTest, AnOlderFileKeepsItsAddressesThroughAShortage) {
  write(olderFile);
  const auto log = test::logOf([] {
    const test::NoMoreDescriptors limit;
    Servers::migrateIfNeeded();
  });
  EXPECT_EQ(log, "[tray] could not change servers.json: " + path() + ": Too many open files\n");
  EXPECT_EQ(contents(), olderFile);
  Servers::add("new", std::nullopt, std::nullopt);
  EXPECT_EQ(labels(), (Labels{"srv:8080", "new"}));
  EXPECT_EQ(Servers::all()[0].address, "http://srv:8080");
  EXPECT_TRUE(copies().empty());
}

TEST_F(ServersMigrationTest, AnOlderFileGetsAddressesAndNames) {
  write(olderFile);
  EXPECT_EQ(test::logOf([] { Servers::migrateIfNeeded(); }),
            "[tray] folded serverHost/webTarget into a single address\n"
            "[tray] reclaimed auto-generated server names\n");
  EXPECT_EQ(Servers::all()[0].address, "http://srv:8080");
  EXPECT_EQ(Servers::all()[0].displayName(), "Zephyl 1");
  EXPECT_EQ(contents().find("serverHost"), std::string::npos);
  const std::string migrated = contents();
  reopen();
  EXPECT_EQ(test::logOf([] { Servers::migrateIfNeeded(); }), "");
  EXPECT_EQ(contents(), migrated);
}

TEST_F(ServersMigrationTest, BothGeneratedLabelsAreRemoved) {
  auto first = entry("a", "Zephyl");
  auto second = entry("b", "srv:5173");
  first.address = second.address = "http://srv:5173";
  first.ordinal.reset();
  Servers::replaceAll({first, second});
  Servers::migrateIfNeeded();
  EXPECT_EQ(labels(), (Labels{"", ""}));
}

TEST_F(ServersMigrationTest, AnUnparsableFileIsKeptUntilTheFirstSave) {
  write("[{\"serverHost\": \"srv\", \"id\": \"a\"}]");
  const auto log = test::logOf([] { Servers::migrateIfNeeded(); });
  EXPECT_EQ(log, "[tray] servers.json is unreadable ([0].label: missing); treating as empty\n");
  EXPECT_EQ(contents(), "[{\"serverHost\": \"srv\", \"id\": \"a\"}]");
}

TEST_F(ServersMigrationTest, AMigrationThatCannotBeSavedLogsOnlyThat) {
  auto old = entry("a");
  old.ordinal.reset();
  Servers::replaceAll({old});
  const auto log = test::logOf([] {
    const test::FileSizeLimit limit(10);
    Servers::migrateIfNeeded();
  });
  EXPECT_EQ(log, "[tray] could not write servers.json: " + path() + ": File too large\n");
}

}  // namespace
}  // namespace zephyl
