#include <filesystem>
#include <map>
#include <mutex>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/utsname.h>

#include "Helpers/Updates/Program/Commands.hpp"
#include "Helpers/Updates/Program/Installation.hpp"
#include "Helpers/Updates/Program/Signature.hpp"
#include "Integration/System/ScriptedServer.hpp"
#include "Support/TemporaryDirectory.hpp"
#include "System/Data/Format.hpp"
#include "System/Files/Files.hpp"
#include "Unit/Updates/SigningKey.hpp"
#include "Unit/Updates/TestArchive.hpp"

namespace zephyl {
namespace {

constexpr std::int64_t feedDate = 1795255200;  // Sat, 21 Nov 2026 10:00:00 +0000

/// An installation of version 1.0 and a server with a feed and an archive of version 2.0.
class UpdateCommandsTest : public ::testing::Test {
 protected:
  UpdateCommandsTest() {
    ::umask(022);
    directory_.write("opt/zephyl/bin/zephyl-tray", "#!/bin/sh\n# 1.0\n", true);
    directory_.write("opt/zephyl/share/zephyl-tray/Info.json", information("1.0"));
    serve("/archive", archive_);
    serve("/feed", signedFeed(feedOf("2.0")));
  }

  [[nodiscard]] std::string information(const std::string& version) const {
    return formatText(
        R"({{"CFBundleIdentifier": "com.zephyl.tray", "CFBundleShortVersionString": "{}",
             "SUFeedURL": "{}", "SUPublicEDKey": "{}"}})",
        version, server_.url("/feed"), key_.publicKey());
  }
  [[nodiscard]] std::string archiveOf(const std::string& version) const {
    return test::TestArchive()
        .add("bin/zephyl-tray", "#!/bin/sh\nexit 0\n")
        .add("share/zephyl-tray/Info.json", information(version))
        .compressed();
  }
  [[nodiscard]] std::string feedOf(const std::string& version) const {
    utsname system{};
    ::uname(&system);
    return formatText(
        "<?xml version=\"1.0\"?><rss><channel>"
        "<lastBuildDate>Sat, 21 Nov 2026 10:00:00 +0000</lastBuildDate>"
        "<item><version>{}</version><shortVersionString>{}</shortVersionString>"
        "<enclosure url=\"{}\" length=\"{}\" architecture=\"{}\" sha256=\"{}\" "
        "edSignature=\"{}\"/></item></channel></rss>\n",
        version, version, server_.url("/archive"), archive_.size(),
        static_cast<const char*>(system.machine), sha256Of(archive_), key_.signBase64(archive_));
  }
  [[nodiscard]] std::string signedFeed(const std::string& feed) const {
    return feed + "<!-- signature: " + key_.signBase64(feed) + " -->\n";
  }

  void serve(const std::string& path, const std::string& document) {
    const std::scoped_lock lock(mutex_);
    documents_[path] = document;
  }
  void answer(const test::ScriptedPeer& peer) {
    const auto request = peer.receiveRequest();
    const std::scoped_lock lock(mutex_);
    for (const auto& [path, document] : documents_) {
      if (!request.starts_with("GET " + path + " ")) continue;
      ++fetched_[path];
      peer.send(formatText("HTTP/1.1 200 OK\r\nContent-Length: {}\r\nConnection: close\r\n\r\n",
                           document.size()) +
                document);
    }
  }
  int fetched(const std::string& path) {
    const std::scoped_lock lock(mutex_);
    return fetched_[path];
  }

  UpdateReport check(const CheckCommand& command) { return perform(command, client_); }
  UpdateReport check() { return check({.prefix = prefix_}); }
  /// Returns the offer of the feed.
  UpdateOffer offer() {
    const auto report = check();
    const auto* const found = std::get_if<UpdateFound>(&report);
    EXPECT_NE(found, nullptr) << reasonOf(report);
    return found != nullptr ? found->offer : UpdateOffer{};
  }
  UpdateReport download(const UpdateOffer& offer) {
    return perform(DownloadCommand{.prefix = prefix_, .offer = offer, .stallSeconds = {}}, client_);
  }
  static std::string reasonOf(const UpdateReport& report) {
    const auto* const failed = std::get_if<UpdateFailed>(&report);
    return failed != nullptr ? failed->value : "(not failed)";
  }
  [[nodiscard]] std::string version() const { return InstalledBundle::read(prefix_)->version; }

  const test::TemporaryDirectory directory_;
  const std::string prefix_ = directory_ / "opt/zephyl";
  const test::SigningKey key_;
  std::mutex mutex_;
  std::map<std::string, std::string> documents_;
  std::map<std::string, int> fetched_;
  test::ScriptedServer server_{[this](const test::ScriptedPeer& peer) { answer(peer); }};
  const std::string archive_ = archiveOf("2.0");
  std::vector<UpdateProgress> progress_;
  bool cancelled_ = false;
  const CommandClient client_{
      .report = [this](const UpdateProgress& progress) { progress_.push_back(progress); },
      .hasCancelled = [this] { return cancelled_; }};
};

TEST_F(UpdateCommandsTest, AnUpdateIsFoundDownloadedAndInstalled) {
  const auto report = check();
  ASSERT_TRUE(std::holds_alternative<UpdateFound>(report)) << reasonOf(report);
  const auto& found = std::get<UpdateFound>(report);
  EXPECT_EQ(found.offer.version, "2.0");
  EXPECT_EQ(found.offer.length, std::ssize(archive_));
  EXPECT_EQ(found.feedDate, feedDate);
  EXPECT_EQ(found.obstacle, std::nullopt);

  const auto staged = download(found.offer);
  ASSERT_TRUE(std::holds_alternative<UpdateStaged>(staged)) << reasonOf(staged);
  EXPECT_EQ(std::get<UpdateStaged>(staged).value, "2.0");
  ASSERT_FALSE(progress_.empty());
  EXPECT_EQ(progress_.back().received, std::ssize(archive_));
  EXPECT_EQ(progress_.back().total, std::ssize(archive_));
  EXPECT_EQ(version(), "1.0");

  const auto installed = perform(InstallCommand{.prefix = prefix_, .version = "2.0"});
  ASSERT_TRUE(std::holds_alternative<UpdateInstalled>(installed)) << reasonOf(installed);
  EXPECT_EQ(version(), "2.0");
  EXPECT_TRUE(perform(RollBackCommand{.prefix = prefix_}));
  EXPECT_EQ(version(), "1.0");
}

TEST_F(UpdateCommandsTest, AFeedWithoutANewerVersionIsUpToDate) {
  serve("/feed", signedFeed(feedOf("1.0")));
  const auto report = check();
  ASSERT_TRUE(std::holds_alternative<UpToDate>(report)) << reasonOf(report);
  EXPECT_EQ(std::get<UpToDate>(report).version, "1.0");
  EXPECT_EQ(std::get<UpToDate>(report).feedDate, feedDate);
}

TEST_F(UpdateCommandsTest, AFeedIsReadOnlyIfItIsSignedAndRecent) {
  serve("/feed", feedOf("2.0"));
  EXPECT_EQ(reasonOf(check()), "The feed is not signed.");
  serve("/feed", signedFeed("not a feed\n"));
  EXPECT_NE(reasonOf(check()), "(not failed)");
  serve("/feed", signedFeed(feedOf("2.0")));
  EXPECT_NE(reasonOf(check({.prefix = prefix_, .newestFeedDate = feedDate + 1})), "(not failed)");
  EXPECT_EQ(reasonOf(check({.prefix = prefix_, .newestFeedDate = feedDate})), "(not failed)");
  EXPECT_NE(reasonOf(check({.prefix = directory_ / "nowhere"})), "(not failed)");
}

TEST_F(UpdateCommandsTest, ASkippedVersionIsNotOffered) {
  EXPECT_TRUE(std::holds_alternative<UpToDate>(check({.prefix = prefix_, .skip = {"2.0"}})));
}

TEST_F(UpdateCommandsTest, AnArchiveThatDiffersFromTheOfferIsRefused) {
  const auto good = offer();
  serve("/archive", archive_.substr(0, archive_.size() - 1));
  EXPECT_EQ(reasonOf(download(good)), "The update is shorter than it should be.");
  std::string damaged = archive_;
  damaged.back() = static_cast<char>(damaged.back() ^ 1);
  serve("/archive", damaged);
  EXPECT_EQ(reasonOf(download(good)), "The signature of the update is invalid.");
  serve("/archive", archive_);
  auto otherHash = good;
  otherHash.sha256 = sha256Of("another archive");
  EXPECT_EQ(reasonOf(download(otherHash)), "The update does not match the hash in the feed.");
  auto otherVersion = good;
  otherVersion.version = "3.0";
  EXPECT_EQ(reasonOf(download(otherVersion)), "The update is version 2.0, not 3.0.");
  auto older = good;
  older.version = "1.0";
  EXPECT_NE(reasonOf(download(older)), "(not failed)");
  EXPECT_NE(reasonOf(perform(InstallCommand{.prefix = prefix_, .version = "2.0"})), "(not failed)")
      << "nothing is staged";
  EXPECT_EQ(version(), "1.0");
}

TEST_F(UpdateCommandsTest, AnArchiveIsDownloadedOnce) {
  const auto good = offer();
  ASSERT_TRUE(std::holds_alternative<UpdateStaged>(download(good)));
  progress_.clear();
  ASSERT_TRUE(std::holds_alternative<UpdateStaged>(download(good)));
  EXPECT_EQ(fetched("/archive"), 1);
  ASSERT_EQ(progress_.size(), 1U);
  EXPECT_EQ(progress_.front().received, good.length);
}

TEST_F(UpdateCommandsTest, ACancelledDownloadStagesNothing) {
  const auto good = offer();
  cancelled_ = true;
  EXPECT_NE(reasonOf(download(good)), "(not failed)");
  cancelled_ = false;
  EXPECT_NE(reasonOf(perform(InstallCommand{.prefix = prefix_, .version = "2.0"})), "(not failed)");
}

TEST_F(UpdateCommandsTest, AnInstallationThatIsInUseIsLeftAlone) {
  const auto good = offer();
  const auto other = Installation::open(prefix_);
  ASSERT_TRUE(other);
  EXPECT_NE(reasonOf(download(good)), "(not failed)");
  EXPECT_EQ(fetched("/archive"), 0);
  EXPECT_NE(reasonOf(perform(InstallCommand{.prefix = prefix_, .version = "2.0"})), "(not failed)");
}

}  // namespace
}  // namespace zephyl
