#include "ZephylTray/Registry/Servers.hpp"

#include <barrier>
#include <set>
#include <thread>

#include "ServersFixture.hpp"
#include "Support/LogCapture.hpp"

namespace fs = std::filesystem;

namespace zephyl {
namespace {

using ServersTest = test::ServersFixture;
using Labels = std::vector<std::string>;

bool isUUID(const std::string& text) {
  if (text.size() != 36) return false;
  for (std::size_t index = 0; index < text.size(); ++index) {
    const bool dash = index == 8 || index == 13 || index == 18 || index == 23;
    const std::string_view allowed = dash ? "-" : "0123456789abcdef";
    if (allowed.find(text[index]) == std::string_view::npos) return false;
  }
  return text[14] == '4';
}

// Reading

TEST_F(ServersTest, AListIsImmutable) {
  Servers::replaceAll({entry("a", "old")});
  const ServerList list = Servers::all();
  Servers::update("a", [](ServerEntry& changed) { changed.label = "new"; });
  EXPECT_EQ(list[0].label, "old");
  EXPECT_EQ(labels(), Labels{"new"});
}

TEST_F(ServersTest, CanBeReadDuringAChange) {
  Servers::replaceAll({entry("a", "old")});
  Labels seen;
  Servers::update("a", [&](ServerEntry& changed) {
    changed.label = "new";
    std::thread([&] { seen = labels(); }).join();
  });
  EXPECT_EQ(seen, Labels{"old"});
}

TEST_F(ServersTest, EnabledOnesKeepTheirOrder) {
  auto disabled = entry("b", "2");
  std::vector<ServerEntry> entries = {entry("a", "1"), disabled, entry("c", "3")};
  entries[0].enabled = entries[2].enabled = true;
  Servers::replaceAll(entries);
  EXPECT_EQ(Servers::enabled(), (std::vector<ServerEntry>{entries[0], entries[2]}));
}

TEST_F(ServersTest, AreKnownByTheirIds) {
  Servers::replaceAll({entry("a"), entry("b")});
  EXPECT_TRUE(Servers::contains("b"));
  EXPECT_FALSE(Servers::contains("B"));
  EXPECT_FALSE(Servers::contains(""));
}

TEST_F(ServersTest, AreMatchedByTheirFingerprintHoweverItIsWritten) {
  std::vector<ServerEntry> entries = {entry("a"), entry("b"), entry("c"), entry("d")};
  entries[1].tailnetFingerprint = "ABC";
  entries[2].tailnetFingerprint = "abc";
  entries[3].tailnetFingerprint = " d ";
  Servers::replaceAll(entries);
  EXPECT_EQ(Servers::matching("\taBc ")->id, "b");
  EXPECT_EQ(Servers::matching("d"), std::nullopt) << "a stored value is not trimmed";
  for (const auto* none : {"", "  ", "ab", "abcd"}) {
    EXPECT_EQ(Servers::matching(none), std::nullopt) << none;
  }
}

// Changes

TEST_F(ServersTest, ANewOneGetsItsOwnIdOrdinalAndPorts) {
  const auto added = *Servers::add(" Lab ", " http://srv ", " ABC ");
  EXPECT_TRUE(isUUID(added.id)) << added.id;
  EXPECT_TRUE(isUUID(added.agentId)) << added.agentId;
  EXPECT_NE(added.id, added.agentId);
  EXPECT_EQ(added.label, " Lab ");
  EXPECT_EQ(added.address, " http://srv ");
  EXPECT_EQ(added.tailnetFingerprint, " ABC ");
  EXPECT_EQ(added.ordinal, 1);
  EXPECT_TRUE(added.enabled);
  EXPECT_EQ(added.serverName, std::nullopt);
  EXPECT_EQ(added.accent, std::nullopt);
  EXPECT_EQ(added.serverAccent, std::nullopt);
  EXPECT_GE(added.ports.socks, 1055);
  EXPECT_GE(added.ports.shim, 8800);
  EXPECT_GE(added.ports.tunnelFallback, 8080);
  EXPECT_EQ(added.ports.tunnelHost, "127.100.0.1");
  EXPECT_EQ(Servers::all().entries(), std::vector<ServerEntry>{added});
}

TEST_F(ServersTest, AKnownFingerprintReenablesItsServer) {
  auto known = entry("a", "mine");
  known.ordinal = 7;
  known.address = "http://old";
  known.tailnetFingerprint = "ABCdef";
  known.ports = {1, 2, "127.100.0.3", 4};
  Servers::replaceAll({entry("b"), known});

  const auto enabled = *Servers::add("ignored", std::nullopt, " abcDEF\t");
  known.enabled = true;
  EXPECT_EQ(enabled, known);
  EXPECT_EQ(*Servers::add("ignored", "  ", "abcdef"), known);
  known.address = " http://new ";
  EXPECT_EQ(*Servers::add("ignored", " http://new ", "abcdef"), known);
  EXPECT_EQ(Servers::all().entries(), (std::vector<ServerEntry>{entry("b"), known}));
}

TEST_F(ServersTest, WithoutAFingerprintEachIsNew) {
  Servers::add("1", "http://srv", "");
  Servers::add("2", "http://srv", "");
  Servers::add("3", "http://srv", "  ");
  Servers::add("4", "http://srv", std::nullopt);
  EXPECT_EQ(labels(), (Labels{"1", "2", "3", "4"}));
}

TEST_F(ServersTest, OrdinalsAreNotUsedAgain) {
  std::vector<ServerEntry> entries = {entry("a"), entry("b"), entry("c")};
  entries[1].ordinal = 4;
  entries[2].ordinal.reset();
  Servers::replaceAll(entries);
  EXPECT_EQ(Servers::add("", std::nullopt, std::nullopt)->ordinal, 5);
}

TEST_F(ServersTest, NeverGetThePortsOfTheAgentAndOfTheControlServer) {
  const auto first = Servers::add("", std::nullopt, std::nullopt)->ports;
  Servers::replaceAll({});
  const test::ScopedVariable agent("AGENT_TRAY_PORT", std::to_string(first.socks)),
      control("ZEPHYL_ONBOARD_PORT", std::to_string(first.shim));
  const auto second = Servers::add("", std::nullopt, std::nullopt)->ports;
  // Not "greater than", because another program may have freed a lower port meanwhile.
  EXPECT_NE(second.socks, first.socks);
  EXPECT_NE(second.shim, first.shim);
}

TEST_F(ServersTest, NeverGetThePortsThatWereConfiguredAtTheStart) {
  const auto first = Servers::add("", std::nullopt, std::nullopt)->ports;
  Servers::replaceAll({});
  {
    const test::ScopedVariable agent("AGENT_TRAY_PORT", std::to_string(first.shim)),
        control("ZEPHYL_ONBOARD_PORT", std::to_string(first.socks));
    reopen();
  }
  const auto second = Servers::add("", std::nullopt, std::nullopt)->ports;
  EXPECT_GT(second.socks, first.socks);
  EXPECT_GT(second.shim, first.shim);
}

TEST_F(ServersTest, AnUpdateChangesTheFirstEntryWithItsId) {
  Servers::replaceAll({entry("b"), entry("a", "1"), entry("a", "2")});
  Servers::update("a", [](ServerEntry& changed) { changed.label = "new"; });
  Servers::update("A", [](ServerEntry& changed) { changed.label = "wrong"; });
  EXPECT_EQ(labels(), (Labels{"", "new", "2"}));
  reopen();
  EXPECT_EQ(labels(), (Labels{"", "new", "2"}));
}

TEST_F(ServersTest, AnUpdateOfAnUnknownOneWritesNothing) {
  Servers::update("a", [](auto&) { FAIL(); });
  EXPECT_FALSE(fileExists(path()));
}

TEST_F(ServersTest, AnUpdateWithoutAChangeIsStillSaved) {
  Servers::replaceAll({entry("a")});
  const std::string before = contents();
  fs::remove(path());
  Servers::update("a", [](auto&) {});
  EXPECT_EQ(contents(), before);
}

TEST_F(ServersTest, RemovingOneRemovesItsTailnetState) {
  Servers::replaceAll({entry("12345678-a"), entry("b"), entry("12345678-a")});
  world_.directory().write("data/Zephyl/servers/12345678-a/tailnet/deep/state", "");
  world_.directory().write("data/Zephyl/servers/b/tailnet/state", "");
  world_.directory().write("home/.zephyl/run/12345678.sock", "");
  EXPECT_EQ(test::logOf([] { Servers::remove("12345678-a"); }), "");
  EXPECT_EQ(Servers::all().entries(), std::vector<ServerEntry>{entry("b")});
  EXPECT_FALSE(fileExists(Servers::tailnetStateDir("12345678-a")));
  EXPECT_FALSE(fileExists(Servers::controlSocketPath("12345678-a")));
  EXPECT_TRUE(fileExists(Servers::tailnetStateDir("b")));
}

TEST_F(ServersTest, RemovingAnUnknownOneIsStillSaved) {
  Servers::remove("a");
  EXPECT_EQ(contents(), "[]\n");
}

TEST_F(ServersTest, RemovingOneLogsEachPathThatCannotBeDeleted) {
  world_.directory().write("data/Zephyl/servers/a", "no directory");
  world_.directory().write("home/.zephyl/run", "no directory");
  const auto log = test::logOf([] { Servers::remove("a"); });
  EXPECT_EQ(log, "[tray] could not delete tailnet state for a: " + Servers::tailnetStateDir("a") +
                     ": Not a directory\n[tray] could not delete tailnet state for a: " +
                     Servers::controlSocketPath("a") + ": Not a directory\n");
}

TEST_F(ServersTest, RemovingNeverDeletesOtherDirectories) {
  world_.directory().write("data/Zephyl/tailnet/state", "kept");
  world_.directory().write("data/Zephyl/servers/tailnet/state", "kept");
  for (const auto* id : {"..", ".", "", "x/../..", "../servers"}) Servers::remove(id);
  EXPECT_TRUE(fileExists(world_.baseDirectory() + "/tailnet/state"));
  EXPECT_TRUE(fileExists(world_.baseDirectory() + "/servers/tailnet/state"));
}

TEST_F(ServersTest, ARemovalThatCannotBeSavedDeletesNothing) {
  fs::create_directories(path());
  world_.directory().write("data/Zephyl/servers/a/tailnet/state", "");
  EXPECT_NE(test::logOf([] { EXPECT_FALSE(Servers::remove("a")); }), "");
  EXPECT_TRUE(fileExists(Servers::tailnetStateDir("a")));
}

TEST_F(ServersTest, AChangeThatCannotBeSavedSaysWhy) {
  Servers::replaceAll({entry("a", "kept")});
  fs::remove(path());
  fs::create_directories(path());
  const std::string reason = path() + ": Is a directory";
  test::logOf([&] {
    const auto added = Servers::add("lost", std::nullopt, std::nullopt);
    ASSERT_FALSE(added);
    EXPECT_EQ(added.error().message, reason);
    const auto updated = Servers::update("a", [](ServerEntry& changed) { changed.label = "lost"; });
    ASSERT_FALSE(updated);
    EXPECT_EQ(updated.error().message, reason);
    const auto removed = Servers::remove("a");
    ASSERT_FALSE(removed);
    EXPECT_EQ(removed.error().message, reason);
    EXPECT_TRUE(Servers::update("unknown", [](auto&) {})) << "there is nothing to save";
  });
  ASSERT_EQ(Servers::all().size(), 1U);
  EXPECT_EQ(Servers::all()[0].label, "kept");
}

// Discovered names and addresses

TEST_F(ServersTest, LearnTheirAddress) {
  Servers::replaceAll({entry("a")});
  EXPECT_TRUE(Servers::recordDiscoveredAddress("a", " http://srv\t"));
  EXPECT_EQ(Servers::all()[0].address, "http://srv");
  EXPECT_FALSE(Servers::recordDiscoveredAddress("a", "http://srv"));
  EXPECT_FALSE(Servers::recordDiscoveredAddress("a", " "));
  EXPECT_FALSE(Servers::recordDiscoveredAddress("b", "http://srv"));
  EXPECT_TRUE(Servers::recordDiscoveredAddress("a", "http://other"));
  reopen();
  EXPECT_EQ(Servers::all()[0].address, "http://other");
}

TEST_F(ServersTest, DoNotLearnAnAddressThatCannotBeSaved) {
  Servers::replaceAll({entry("a")});
  fs::remove(path());
  fs::create_directories(path());
  test::logOf([] { EXPECT_FALSE(Servers::recordDiscoveredAddress("a", "http://srv")); });
  EXPECT_EQ(Servers::all()[0].address, std::nullopt);
}

TEST_F(ServersTest, LearnTheirNameAndColor) {
  Servers::replaceAll({entry("a")});
  Servers::recordDiscoveredName("a", " Lab ");
  Servers::recordDiscoveredAccent("a", " red ");
  Servers::recordDiscoveredName("b", "Other");
  EXPECT_EQ(Servers::all()[0].serverName, "Lab");
  EXPECT_EQ(Servers::all()[0].serverAccent, "red");
}

TEST_F(ServersTest, WriteNothingForABlankValueButEverythingElse) {
  Servers::replaceAll({entry("a")});
  fs::remove(path());
  Servers::recordDiscoveredName("a", "  ");
  Servers::recordDiscoveredAccent("a", "\t");
  EXPECT_FALSE(Servers::recordDiscoveredAddress("a", ""));
  EXPECT_FALSE(fileExists(path()));
  Servers::recordDiscoveredName("a", "Lab");
  fs::remove(path());
  Servers::recordDiscoveredName("a", "Lab");
  EXPECT_TRUE(fileExists(path()));
}

// Concurrency

template <typename Key>
std::size_t distinct(Key key) {
  std::set<std::invoke_result_t<Key, const ServerEntry&>> values;
  for (const auto& server : Servers::all()) values.insert(key(server));
  return values.size();
}

constexpr int manyThreads = 8;
constexpr int addsOfEach = 25;
constexpr int removalsOfEach = 15;
constexpr int updatesOfEach = 85;  // a thousand operations in total

void changeMuch() {
  std::vector<std::string> mine;
  for (int round = 0; round < updatesOfEach; ++round) {
    Servers::update("shared", [](ServerEntry& shared) { *shared.ordinal -= 1; });
    if (round < addsOfEach) mine.push_back(Servers::add("", std::nullopt, std::nullopt)->id);
    if (round % 5 == 4 && round / 5 < removalsOfEach) {
      Servers::remove(mine.back());
      mine.pop_back();
    }
  }
}

TEST_F(ServersTest, AreConsistentUnderChangesOfManyThreads) {
  const test::ScopedVariable inMemory("TMPDIR",
                                      "/dev/shm");  // this test does not depend on the disk
  const test::TemporaryDirectory directory;
  const test::ScopedVariable data("XDG_DATA_HOME", directory.path());
  auto shared = entry("shared");
  shared.ordinal = 0;
  Servers::replaceAll({shared});
  std::barrier start(manyThreads);
  {
    std::vector<std::jthread> threads(manyThreads);
    for (auto& thread : threads) {
      thread = std::jthread([&] {
        start.arrive_and_wait();
        changeMuch();
      });
    }
  }
  const std::size_t left = 1 + manyThreads * (addsOfEach - removalsOfEach);
  EXPECT_EQ(Servers::all().size(), left);
  EXPECT_EQ(Servers::all()[0].ordinal, -manyThreads * updatesOfEach);
  EXPECT_EQ(distinct([](const auto& server) { return server.id; }), left);
  EXPECT_EQ(distinct([](const auto& server) { return *server.ordinal; }), left);
  EXPECT_EQ(distinct([](const auto& server) { return server.ports.socks; }), left);
  EXPECT_EQ(distinct([](const auto& server) { return server.ports.shim; }), left);
  EXPECT_EQ(distinct([](const auto& server) { return server.ports.tunnelHost; }), left);
  const auto before = Servers::all().entries();
  reopen();
  EXPECT_EQ(Servers::all().entries(), before);
}

}  // namespace
}  // namespace zephyl
