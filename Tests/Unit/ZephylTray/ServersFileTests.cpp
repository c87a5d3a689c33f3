#include <algorithm>
#include <utility>

#include "ServersFixture.hpp"
#include "Support/FileSizeLimit.hpp"
#include "Support/HomelessUser.hpp"
#include "Support/LogCapture.hpp"
#include "Support/NoMoreDescriptors.hpp"

namespace fs = std::filesystem;

namespace zephyl {
namespace {

using ServersFileTest = test::ServersFixture;
using Labels = std::vector<std::string>;

// The file

TEST_F(ServersFileTest, AreEmptyWithoutAFile) {
  EXPECT_EQ(test::logOf([] { EXPECT_TRUE(Servers::all().empty()); }), "");
  EXPECT_FALSE(fileExists(path()));
}

TEST_F(ServersFileTest, AreInTheApplicationSupportDirectory) {
  EXPECT_EQ(Servers::baseDir(), world_.baseDirectory());
  EXPECT_EQ(Servers::tailnetStateDir("abc"), world_.baseDirectory() + "/servers/abc/tailnet");
  EXPECT_EQ(Servers::controlSocketPath("12345678-90ab"),
            (world_.directory() / "home/.zephyl/run/12345678.sock"));
  EXPECT_EQ(Servers::controlSocketPath("123"), (world_.directory() / "home/.zephyl/run/123.sock"));
}

TEST_F(ServersFileTest, AreInTheTemporaryDirectoryWithoutAHome) {
  const test::ScopedVariable temporary("TMPDIR", "/t");
  const auto found = test::holdsWithoutHome([] { return Servers::baseDir() == "/t/Zephyl"; });
  if (!found) GTEST_SKIP() << "needs the right to become another user";
  EXPECT_TRUE(*found);
}

/// Claims a base directory with `mode` and `owner` as a user without a home, and returns the
/// result; nullopt if this user is not root.
std::optional<bool> claimedWithoutHome(uid_t owner, mode_t mode) {
  const test::TemporaryDirectory directory;
  ::chmod(directory.path().c_str(), 01777);
  const test::ScopedVariable temporary("TMPDIR", directory.path());
  const auto base = directory / "Zephyl";
  ::mkdir(base.c_str(), mode);
  ::chmod(base.c_str(), mode);
  if (::chown(base.c_str(), owner, owner) != 0) return std::nullopt;
  return test::holdsWithoutHome([] { return Servers::claimBaseDir().has_value(); });
}

TEST_F(ServersFileTest, AreNotReadFromAnotherUsersDirectoryInTheTemporaryDirectory) {
  constexpr uid_t homeless = 54321;
  const auto own = claimedWithoutHome(homeless, 0700);
  if (!own) GTEST_SKIP() << "needs root, to become a user without a home";
  EXPECT_TRUE(*own);
  EXPECT_EQ(claimedWithoutHome(homeless, 0770), false) << "others can write it";
  EXPECT_EQ(claimedWithoutHome(homeless + 1, 0700), false);
  EXPECT_EQ(claimedWithoutHome(homeless + 1, 0777), false);
}

TEST_F(ServersFileTest, AreReadFromAnyDirectoryOfTheHome) {
  std::filesystem::create_directories(Servers::baseDir());
  ::chmod(Servers::baseDir().c_str(), 0755);
  EXPECT_TRUE(Servers::claimBaseDir());
}

TEST_F(ServersFileTest, AreWrittenIndented) {
  Servers::replaceAll({{.id = "b",
                        .label = "é",
                        .ordinal = 2,
                        .agentId = "agent",
                        .ports = {1055, 8800, "127.100.0.1", std::nullopt},
                        .enabled = true}});
  EXPECT_EQ(contents(), R"([
  {
    "agentId": "agent",
    "enabled": true,
    "id": "b",
    "label": "é",
    "ordinal": 2,
    "ports": {
      "shim": 8800,
      "socks": 1055,
      "tunnelHost": "127.100.0.1"
    }
  }
]
)");
}

TEST_F(ServersFileTest, AreKeptInTheirOrderForTheNextStart) {
  const std::vector<ServerEntry> entries = {entry("b", "z"), entry("a", "y"), entry("c", "x")};
  Servers::replaceAll(entries);
  EXPECT_EQ(Servers::all().entries(), entries);
  reopen();
  EXPECT_EQ(Servers::all().entries(), entries);
}

TEST_F(ServersFileTest, AreReadableByTheUserOnly) {
  Servers::replaceAll({});
  EXPECT_EQ(fs::status(world_.baseDirectory()).permissions(), fs::perms::owner_all);
  EXPECT_EQ(fs::status(path()).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(ServersFileTest, LoseUnknownKeysAtTheNextWrite) {
  write(R"([{"id": "a", "label": "", "agentId": "", "enabled": true, "serverHost": "srv",
             "ports": {"socks": 1, "shim": 2, "tunnelHost": "", "more": 1}, "ordinal": 1}])");
  Servers::update("a", [](auto&) {});
  EXPECT_EQ(contents().find("serverHost"), std::string::npos);
  EXPECT_EQ(contents().find("more"), std::string::npos);
}

TEST_F(ServersFileTest, DoNotSeeWhatAnotherProgramWritesAndOverwriteIt) {
  Servers::replaceAll({entry("a", "mine")});
  write("[]");
  EXPECT_EQ(labels(), Labels{"mine"});
  Servers::update("a", [](auto&) {});
  reopen();
  EXPECT_EQ(labels(), Labels{"mine"});
}

TEST_F(ServersFileTest, ReadTheLastOfRepeatedKeys) {
  write(R"([{"id": "a", "label": "first", "label": "last", "agentId": "", "enabled": true,
             "ports": {"socks": -1, "shim": 70000, "tunnelHost": ""}}])");
  EXPECT_EQ(labels(), Labels{"last"});
  EXPECT_EQ(Servers::all()[0].ports.socks, -1);
  EXPECT_EQ(Servers::all()[0].ports.shim, 70000);
}

// Unparsable files

TEST_F(ServersFileTest, AreEmptyIfTheFileCannotBeParsedAndLogWhyOnce) {
  write(R"([{"id": "a", "label": "l", "enabled": true,
             "ports": {"socks": 1, "shim": 2, "tunnelHost": ""}}])");
  const std::string old = contents();
  EXPECT_EQ(test::logOf([] {
              EXPECT_TRUE(Servers::all().empty());
              EXPECT_TRUE(Servers::all().empty());
            }),
            "[tray] servers.json is unreadable ([0].agentId: missing); treating as empty\n");
  EXPECT_EQ(contents(), old);
}

TEST_F(ServersFileTest, KeepACopyOfAnUnparsableFileBeforeReplacingIt) {
  write("[{}]");
  EXPECT_TRUE(Servers::all().empty());
  const auto log = test::logOf([] { Servers::add("new", std::nullopt, std::nullopt); });
  Servers::add("newer", std::nullopt, std::nullopt);
  ASSERT_EQ(copies().size(), 1U);
  EXPECT_EQ(log, "[tray] copied the unreadable servers.json to " + copies().front() + "\n");
  EXPECT_EQ(*readFile(copies().front()), "[{}]");
  reopen();
  EXPECT_EQ(labels(), (Labels{"new", "newer"}));
}

TEST_F(ServersFileTest, KeepACopyEvenIfTheFirstOperationReplacesAll) {
  write("[{}]");
  Servers::replaceAll({});
  ASSERT_EQ(copies().size(), 1U);
  EXPECT_EQ(*readFile(copies().front()), "[{}]");
}

TEST_F(ServersFileTest, SurviveEveryKindOfGarbage) {
  const std::string whole =
      R"([{"id": "a", "label": "l", "agentId": "", "enabled": true, "ordinal": 1,)"
      R"( "ports": {"socks": 1, "shim": 2, "tunnelHost": ""}}])";
  std::vector<std::string> files = {"",    "null",   "{}",        "[",
                                    "[1]", "[null]", whole + "x", "\xFF\xFE"};
  files.emplace_back(10'000'000, 'x');
  files.emplace_back(1'000'000, '[');
  files.push_back(std::string(100'000, '[') + std::string(100'000, ']'));
  for (const auto& [from, to] : std::initializer_list<std::pair<std::string, std::string>>{
           {R"("socks": 1)", R"("socks": 99999999999999999999)"},
           {R"("socks": 1)", R"("socks": 1.5)"},
           {R"("socks": 1)", R"("socks": "1")"},
           {R"("ordinal": 1)", R"("ordinal": 1e400)"},
           {R"("enabled": true)", R"("enabled": 1)"},
           {R"("label": "l")", "\"label\": \"\xC3(\""}}) {
    files.push_back(whole);
    files.back().replace(whole.find(from), from.size(), to);
  }
  for (const auto& text : files) {
    write(text);
    reopen();
    const auto log = test::logOf([] { EXPECT_TRUE(Servers::all().empty()); });
    EXPECT_TRUE(log.starts_with("[tray] servers.json is unreadable (")) << text.substr(0, 200);
    EXPECT_EQ(std::ranges::count(log, '\n'), 1) << log;
    EXPECT_LT(log.size(), 200U);
  }
  write(whole);
  reopen();
  EXPECT_EQ(labels(), Labels{"l"});
}

// Shortages

TEST_F(ServersFileTest, AreReadAgainAfterAShortage) {
  Servers::replaceAll({entry("a", "1"), entry("b", "2"), entry("c", "3")});
  reopen();
  const auto log = test::logOf([] {
    const test::NoMoreDescriptors limit;
    EXPECT_TRUE(Servers::all().empty());
    EXPECT_TRUE(Servers::all().empty());
  });
  EXPECT_EQ(log, "[tray] could not read servers.json: " + path() + ": Too many open files\n");
  EXPECT_TRUE(Servers::add("4", std::nullopt, std::nullopt));
  EXPECT_EQ(labels(), (Labels{"1", "2", "3", "4"}));
  EXPECT_TRUE(copies().empty());
}

TEST_F(ServersFileTest, AreUnchangedDuringAShortage) {
  Servers::replaceAll({entry("a", "kept")});
  const std::string before = contents();
  const std::string reason = path() + ": Too many open files";
  reopen();
  const auto log = test::logOf([&] {
    const test::NoMoreDescriptors limit;
    const auto added = Servers::add("lost", std::nullopt, std::nullopt);
    ASSERT_FALSE(added);
    EXPECT_EQ(added.error().message, reason);
  });
  EXPECT_EQ(log, "[tray] could not change servers.json: " + reason + "\n");
  EXPECT_EQ(contents(), before);
  EXPECT_TRUE(copies().empty());
  EXPECT_EQ(labels(), Labels{"kept"});
}

TEST_F(ServersFileTest, AnUnparsableFileIsCopiedOnlyAfterAShortage) {
  write("[{}]");
  test::logOf([] {
    EXPECT_TRUE(Servers::all().empty());
    const test::NoMoreDescriptors limit;
    EXPECT_FALSE(Servers::add("lost", std::nullopt, std::nullopt));
  });
  EXPECT_TRUE(copies().empty());
  EXPECT_EQ(contents(), "[{}]");
  test::logOf([] { EXPECT_TRUE(Servers::add("new", std::nullopt, std::nullopt)); });
  EXPECT_EQ(copies().size(), 1U);
  EXPECT_EQ(labels(), Labels{"new"});
}

// Writes that fail

TEST_F(ServersFileTest, AreUnchangedIfTheFileIsADirectory) {
  fs::create_directories(path());
  const auto log = test::logOf([] { Servers::add("lost", std::nullopt, std::nullopt); });
  EXPECT_EQ(log, "[tray] could not write servers.json: " + path() + ": Is a directory\n");
  EXPECT_TRUE(Servers::all().empty());
}

TEST_F(ServersFileTest, AreUnchangedIfTheBaseDirectoryCannotBeCreated) {
  world_.directory().write("data/Zephyl", "a file");
  const auto log = test::logOf([] { Servers::add("lost", std::nullopt, std::nullopt); });
  EXPECT_EQ(log, "[tray] could not write servers.json: " + world_.baseDirectory() +
                     ": Not a directory\n");
  EXPECT_TRUE(Servers::all().empty());
}

TEST_F(ServersFileTest, AreUnchangedIfTheDiskIsFull) {
  Servers::replaceAll({entry("a", "kept")});
  const std::string before = contents();
  const auto log = test::logOf([] {
    const test::FileSizeLimit limit(4096);
    Servers::update("a", [](ServerEntry& changed) { changed.label = std::string(5000, 'x'); });
  });
  EXPECT_EQ(log, "[tray] could not write servers.json: " + path() + ": File too large\n");
  EXPECT_EQ(labels(), Labels{"kept"});
  EXPECT_EQ(contents(), before);
  Servers::update("a", [](ServerEntry& changed) { changed.label = "later"; });
  reopen();
  EXPECT_EQ(labels(), Labels{"later"});
}

TEST_F(ServersFileTest, AreUnchangedIfATextWouldMakeTheFileUnreadable) {
  Servers::replaceAll({entry("a", "kept")});
  const auto log = test::logOf([] { Servers::add("\xC3(", std::nullopt, std::nullopt); });
  EXPECT_EQ(log, "[tray] could not write servers.json: a text in it is not valid UTF-8\n");
  EXPECT_EQ(labels(), Labels{"kept"});
}

TEST_F(ServersFileTest, AreWrittenThroughALinkThatIsKept) {
  const std::string elsewhere = world_.directory().write("elsewhere/servers.json", "[]");
  fs::create_directories(world_.baseDirectory());
  fs::create_symlink(elsewhere, path());
  Servers::add("new", std::nullopt, std::nullopt);
  EXPECT_TRUE(fs::is_symlink(path()));
  EXPECT_NE(readFile(elsewhere)->find("new"), std::string::npos);
}

}  // namespace
}  // namespace zephyl
