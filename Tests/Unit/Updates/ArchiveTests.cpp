#include "Helpers/Updates/Archive/Archive.hpp"

#include <gtest/gtest.h>

#include "Unit/Updates/TestArchive.hpp"

namespace zephyl {
namespace {

using Kind = ArchiveEntry::Kind;
using test::TestArchive;

struct Contents {
  std::vector<ArchiveEntry> entries;
  std::vector<std::string> files;
  std::string failure;
};

Contents contentsOf(ByteSource& source) {
  ArchiveReader reader(source);
  Contents all;
  for (;;) {
    const auto entry = reader.next();
    if (!entry) {
      all.failure = entry.error().message;
      return all;
    }
    if (!*entry) return all;
    all.entries.push_back(**entry);
    std::string& file = all.files.emplace_back();
    std::array<char, 100> chunk{};
    for (;;) {
      const auto count = reader.read(chunk);
      if (!count) all.failure = count.error().message;
      if (!count || *count == 0) break;
      file.append(chunk.data(), *count);
    }
    if (!all.failure.empty()) return all;
  }
}

Contents contentsOf(std::string_view tar) {
  MemorySource source(tar);
  return contentsOf(source);
}

TEST(Archive, HoldsFilesDirectoriesAndLinks) {
  const std::string big(1300, 'x');
  const auto all = contentsOf(TestArchive()
                                  .add("./", "", '5')
                                  .add("./bin/", "", '5')
                                  .add("./bin/a", "hello")
                                  .add("bin/plain", big, '0', "", "0000644")
                                  .add("bin/old", "", '\0')
                                  .add("share/x/link", "", '2', "../../bin/a")
                                  .addSplit("share/long", "name")
                                  .tar());
  EXPECT_EQ(all.failure, "");
  ASSERT_EQ(all.entries.size(), 7U);
  EXPECT_EQ(all.entries[0], (ArchiveEntry{.kind = Kind::directory, .executable = true}));
  EXPECT_EQ(all.entries[1].path, "bin");
  EXPECT_EQ(all.entries[2], (ArchiveEntry{.path = "bin/a", .executable = true, .size = 5}));
  EXPECT_EQ(all.files[2], "hello");
  EXPECT_EQ(all.entries[3], (ArchiveEntry{.path = "bin/plain", .size = 1300}));
  EXPECT_EQ(all.files[3], big);
  EXPECT_EQ(all.entries[5].target, "../../bin/a");
  EXPECT_EQ(all.entries[6].path, "share/long/name");
}

TEST(Archive, SkipsUnreadContents) {
  const std::string tar = TestArchive().add("a", std::string(2000, 'x')).add("b", "b").tar();
  MemorySource source(tar);
  ArchiveReader reader(source);
  EXPECT_EQ((*reader.next())->path, "a");
  EXPECT_EQ((*reader.next())->path, "b");
  EXPECT_FALSE(*reader.next());
}

TEST(Archive, RefusesEverythingElse) {
  for (const char type : std::string("134567xgLKSVM")) {
    if (type == '5') continue;
    const auto all = contentsOf(TestArchive().add("a", "", type, "a").tar());
    EXPECT_EQ(all.failure, "The archive contains an entry that is not a file: a") << type;
  }
  EXPECT_NE(contentsOf(TestArchive().add("a", "content", '5').tar()).failure, "");
  EXPECT_NE(contentsOf(TestArchive().add("a", "content", '2', "b").tar()).failure, "");
  EXPECT_NE(contentsOf(TestArchive().add("./", "", '0').tar()).failure, "");
}

TEST(Archive, RefusesAnyDamageToAHeader) {
  const std::string good = TestArchive().add("a", "x").tar();
  constexpr std::size_t behindChecksum = 155;  // the only byte without a meaning
  for (std::size_t place = 0; place < TestArchive::block; ++place) {
    if (place == behindChecksum) continue;
    std::string bad = good;
    bad[place] = static_cast<char>(bad[place] ^ 4);
    EXPECT_NE(contentsOf(bad).failure, "") << place;
  }
}

TEST(Archive, MustBeComplete) {
  const TestArchive archive = TestArchive().add("a", std::string(600, 'x'));
  const std::string whole = archive.open() + std::string(TestArchive::block, '\0');
  EXPECT_EQ(contentsOf(whole).failure, "");
  for (std::size_t length = 0; length < whole.size(); length += 100) {
    EXPECT_EQ(contentsOf(whole.substr(0, length)).failure, "The archive is truncated.") << length;
  }
  EXPECT_EQ(contentsOf(archive.tar() + "x").failure, "The archive continues after its end.");
}

TEST(Archive, IsPaddedWithAFewZerosOnly) {
  const std::string archive = TestArchive().add("a", "x").open();
  const std::string end(TestArchive::block, '\0');
  EXPECT_EQ(contentsOf(archive + end + std::string(maxArchivePadding, '\0')).failure, "");
  EXPECT_EQ(contentsOf(archive + end + std::string(maxArchivePadding + 1, '\0')).failure,
            "The archive continues after its end.");
}

TEST(Archive, HasLimits) {
  TestArchive many;
  for (std::size_t i = 0; i <= maxArchiveEntries; ++i) many.add("a", "");
  EXPECT_EQ(contentsOf(many.tar()).failure, "The archive contains too many files.");
  std::string huge = TestArchive().add("a", "").open();
  EXPECT_EQ(contentsOf(huge + huge).failure, "The archive is truncated.");
}

TEST(Gzip, IsUnpackedAndMustBeComplete) {
  const std::string packed = TestArchive().add("a", std::string(100'000, 'y')).compressed();
  const auto unpacked = [](std::string_view bytes) {
    GzipSource source(bytes);
    return contentsOf(source);
  };
  EXPECT_EQ(unpacked(packed).failure, "");
  EXPECT_EQ(unpacked(packed).files[0].size(), 100'000U);
  EXPECT_EQ(unpacked(packed + "x").failure, "The archive continues after its end.");
  for (std::size_t length = 0; length < packed.size(); length += 7) {
    EXPECT_NE(unpacked(packed.substr(0, length)).failure, "") << length;
  }
  EXPECT_EQ(unpacked("no gzip").failure, "The archive is damaged.");
}

TEST(ArchivePath, CannotLeaveTheDirectory) {
  for (const auto* same : {"a", "a/b", "bin/zephyl-tray", "a..b/...", "a b", "é"}) {
    EXPECT_EQ(safePath(same).value(), same);
  }
  EXPECT_EQ(safePath("./a/b/").value(), "a/b");
  EXPECT_EQ(safePath("./").value(), "");
  EXPECT_EQ(safePath(".").value(), "");
  for (const std::string& bad :
       {std::string(), std::string("/"), std::string("/a"), std::string(".."), std::string("../a"),
        std::string("a/.."), std::string("a/../b"), std::string("a//b"), std::string("a/./b"),
        std::string("././a"), std::string(".//a"), std::string("a\nb"), std::string("a\x1b"),
        std::string("a\xff"), std::string(256, 'a'), std::string("a//")}) {
    EXPECT_TRUE(safePath(bad).has_error()) << bad;
  }
}

TEST(ArchiveLink, StaysInside) {
  const std::vector<std::pair<const char*, const char*>> inside = {
      {"a", "b"}, {"a/b", "../c"}, {"a/b/c", "../../d/e"}, {"a", "b/c"}};
  for (const auto& [path, target] : inside) {
    EXPECT_TRUE(checkLink(path, target).has_value()) << path << " " << target;
  }
  const std::vector<std::pair<const char*, const char*>> outside = {
      {"a", ""},     {"a", "/etc"},     {"a", "../b"},       {"a/b", "../../c"},
      {"a/b", ".."}, {"a/b", "c/../d"}, {"a/b/c", "../../"}, {"a", "b/"},
      {"a", "./b"},  {"a/b", ".././c"}, {"a/b", "../"}};
  for (const auto& [path, target] : outside) {
    EXPECT_TRUE(checkLink(path, target).has_error()) << path << " " << target;
  }
}

TEST(ArchivePath, BelongsToTheProgramByItsName) {
  for (const auto* own :
       {"bin/zephyl-tray", "libexec/zephyl-tray/zephyl-tray-updater", "share/zephyl-tray/agent/x",
        "share/icons/hicolor/symbolic/apps/com.zephyl.tray-idle-symbolic.svg",
        "share/man/man1/zephyl-tray.1", "share/doc/zephyl-tray/README"}) {
    EXPECT_TRUE(belongsToProgram(own)) << own;
  }
  for (const auto* other : {"bin/ls", "README", "share/Zephyl/servers.json", "", "share/icons/x"}) {
    EXPECT_FALSE(belongsToProgram(other)) << other;
  }
}

}  // namespace
}  // namespace zephyl
