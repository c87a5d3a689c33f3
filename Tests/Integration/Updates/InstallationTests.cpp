#include "Helpers/Updates/Program/Installation.hpp"

#include <set>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Support/TemporaryDirectory.hpp"
#include "System/Data/Format.hpp"
#include "System/Files/Files.hpp"
#include "Unit/Updates/TestArchive.hpp"

namespace zephyl {
namespace {

using test::TestArchive;

const std::string usableKey = "11qYAYKxCrfVS/7TyWQHOg7hcvPapiMlrwIaaPcHURo=";

std::string information(const std::string& version) {
  return R"({"CFBundleIdentifier": "com.zephyl.tray", "CFBundleShortVersionString": ")" + version +
         R"(", "SUFeedURL": "https://a.example/", "SUPublicEDKey": ")" + usableKey + "\"}";
}

/// Returns the information of `version` with `old` replaced.
std::string information(const std::string& version, const std::string& old,
                        const std::string& replacement) {
  std::string changed = information(version);
  return changed.replace(changed.find(old), old.size(), replacement);
}

std::string programOf(const std::string& version) {
  return "#!/bin/sh\n# " + version + "\nexit 0\n";
}

std::string archiveOf(const std::string& version) {
  return TestArchive()
      .add("bin/zephyl-tray", programOf(version))
      .add("share/zephyl-tray/Info.json", information(version))
      .compressed();
}

class InstallationTest : public ::testing::Test {
 protected:
  InstallationTest() {
    ::umask(022);
    install("1.0");
  }

  void install(const std::string& version) {
    ASSERT_TRUE(removePath(directory_ / "opt"));
    directory_.write("opt/zephyl/bin/zephyl-tray", programOf(version), true);
    directory_.write("opt/zephyl/share/zephyl-tray/Info.json", information(version));
  }

  /// Returns the version at the prefix. Its two files must agree.
  [[nodiscard]] std::string version() const {
    const auto bundle = InstalledBundle::read(prefix_);
    const auto program = readFile(prefix_ + "/bin/zephyl-tray");
    if (!bundle || !program) return "nothing";
    return *program == programOf(bundle->version) ? bundle->version : "a mixture";
  }

  Result<void> stage(const std::string& archive, const std::string& version) const {
    auto installation = Installation::open(prefix_);
    if (!installation) return installation.error();
    return installation->stage(archive, version);
  }
  Result<void> swap(const std::string& version) const {
    auto installation = Installation::open(prefix_);
    if (!installation) return installation.error();
    return installation->swap(version);
  }
  Result<void> goBack() const {
    auto installation = Installation::open(prefix_);
    if (!installation) return installation.error();
    return installation->rollBack();
  }

  const test::TemporaryDirectory directory_;
  const std::string prefix_ = directory_ / "opt/zephyl";
  const UpdateFiles files_ = UpdateFiles::of(prefix_);
};

TEST_F(InstallationTest, InstallsTheNewVersionAndKeepsTheOldOne) {
  ASSERT_TRUE(stage(archiveOf("2.0"), "2.0"));
  EXPECT_EQ(version(), "1.0");
  ASSERT_TRUE(swap("2.0"));
  EXPECT_EQ(version(), "2.0");
  EXPECT_EQ(InstalledBundle::read(files_.previous)->version, "1.0");
  EXPECT_EQ(readMarker(files_.trial)->version, "2.0");
  EXPECT_FALSE(fileExists(files_.staged));
}

TEST_F(InstallationTest, RollsBackToThePreviousVersion) {
  ASSERT_TRUE(stage(archiveOf("2.0"), "2.0"));
  ASSERT_TRUE(swap("2.0"));
  ASSERT_TRUE(goBack());
  EXPECT_EQ(version(), "1.0");
  EXPECT_EQ(readMarker(files_.failed)->version, "2.0");
  EXPECT_FALSE(fileExists(files_.trial));
  EXPECT_FALSE(fileExists(files_.previous));
  EXPECT_EQ(goBack().error().message, "No unconfirmed version is installed.");
  EXPECT_EQ(version(), "1.0");
}

TEST_F(InstallationTest, RefusesAnArchiveOfAnotherVersion) {
  const auto refusal = [&](const std::string& archive) {
    const auto staged = stage(archive, "2.0");
    return staged ? "" : staged.error().message;
  };
  EXPECT_EQ(refusal(archiveOf("2.1")), "The update is version 2.1, not 2.0.");
  EXPECT_EQ(refusal(TestArchive().add("bin/zephyl-tray", "x").compressed()),
            "The update does not contain its version.");
  EXPECT_EQ(
      refusal(TestArchive().add("share/zephyl-tray/Info.json", information("2.0")).compressed()),
      "The update contains no program.");
  EXPECT_EQ(refusal(TestArchive()
                        .add("bin/zephyl-tray", "", '2', "../share/zephyl-tray/Info.json")
                        .add("share/zephyl-tray/Info.json", information("2.0"))
                        .compressed()),
            "The update contains no program.");
  EXPECT_EQ(refusal(TestArchive()
                        .add("bin/zephyl-tray", "x")
                        .add("share/zephyl-tray/Info.json",
                             information("2.0", "com.zephyl", "com.others"))
                        .compressed()),
            "The update belongs to another program.");
  EXPECT_EQ(stage(archiveOf("1.0"), "1.0").error().message,
            "Version 1.0 is not newer than 1.0, which is installed.");
  EXPECT_EQ(version(), "1.0");
  EXPECT_FALSE(fileExists(files_.partial));
  EXPECT_FALSE(fileExists(files_.staged));
}

TEST_F(InstallationTest, RefusesAVersionThatCouldNotBeUpdated) {
  const auto refusal = [&](const std::string& old, const std::string& replacement) {
    const auto staged =
        stage(TestArchive()
                  .add("bin/zephyl-tray", "x")
                  .add("share/zephyl-tray/Info.json", information("2.0", old, replacement))
                  .compressed(),
              "2.0");
    return staged ? "" : staged.error().message;
  };
  constexpr auto badKey =
      "The update has no usable signing key: The signing key is not an Ed25519 "
      "key.";
  EXPECT_EQ(refusal(usableKey, "typo"), badKey);
  EXPECT_EQ(refusal(usableKey, usableKey + " typo"), badKey);
  EXPECT_EQ(refusal(usableKey, ""),
            "The update has no usable signing key: There is no signing key.");
  EXPECT_EQ(refusal("https://a.example/", "http://a.example/"),
            "The update has no usable feed address: Updates are fetched only over https, not from "
            "http://a.example/.");
  EXPECT_EQ(refusal("https://a.example/", ""),
            "The update has no usable feed address: \"\" is not an address.");
  EXPECT_EQ(refusal(usableKey, usableKey + " " + usableKey), "");
}

TEST_F(InstallationTest, KeepsTheModeAndTheGroupOfTheInstallation) {
  const gid_t group = ::geteuid() == 0 ? 54399 : ::getegid();
  for (const mode_t mode : {0700U, 0750U, 02755U}) {
    install("1.0");
    ASSERT_EQ(::chown(prefix_.c_str(), ::geteuid(), group), 0);
    ASSERT_EQ(::chmod(prefix_.c_str(), mode), 0);
    ASSERT_TRUE(stage(archiveOf("2.0"), "2.0"));
    ASSERT_TRUE(swap("2.0"));
    struct stat status {};
    ASSERT_EQ(::stat(prefix_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, mode);
    EXPECT_EQ(status.st_gid, group);
  }
}

TEST_F(InstallationTest, SwapsOnlyForANewerVersionThatStarts) {
  EXPECT_TRUE(swap("2.0").has_error());
  ASSERT_TRUE(stage(archiveOf("2.0"), "2.0"));
  EXPECT_TRUE(swap("3.0").has_error());
  // A version that was staged before the user updated in another way.
  install("2.5");
  ASSERT_TRUE(createDirectories(files_.directory));
  EXPECT_TRUE(swap("2.0").has_error());
  EXPECT_EQ(version(), "2.5");
  ASSERT_TRUE(stage(TestArchive()
                        .add("bin/zephyl-tray", "#!/bin/sh\nexit 1\n")
                        .add("share/zephyl-tray/Info.json", information("3.0"))
                        .compressed(),
                    "3.0"));
  EXPECT_EQ(swap("3.0").error().message, "The new version does not work on this machine.");
  EXPECT_EQ(version(), "2.5");
}

TEST_F(InstallationTest, UsesTheStagedVersionAsThePreviousOneOnlyIfItIsOlder) {
  ASSERT_TRUE(stage(archiveOf("2.0"), "2.0"));
  ASSERT_TRUE(swap("2.0"));
  ASSERT_TRUE(removePath(files_.previous));
  ASSERT_TRUE(stage(archiveOf("3.0"), "3.0"));
  EXPECT_EQ(goBack().error().message, "There is no previous version to roll back to.");
  EXPECT_EQ(version(), "2.0");
  EXPECT_FALSE(fileExists(files_.failed)) << "nothing was rolled back";
  // The state after an interruption directly after the exchange.
  ASSERT_TRUE(removePath(files_.staged));
  directory_.write("opt/.zephyl.updates/staged/bin/zephyl-tray", programOf("1.0"), true);
  directory_.write("opt/.zephyl.updates/staged/share/zephyl-tray/Info.json", information("1.0"));
  ASSERT_TRUE(goBack());
  EXPECT_EQ(version(), "1.0");
}

TEST_F(InstallationTest, UsesNoDirectoryOfAnotherUser) {
  ASSERT_TRUE(createDirectories(directory_ / "elsewhere"));
  ASSERT_EQ(::symlink((directory_ / "elsewhere").c_str(), files_.directory.c_str()), 0);
  EXPECT_TRUE(Installation::open(prefix_).has_error());
}

TEST_F(InstallationTest, UsesNoDirectoryThatOthersMayEnter) {
  ASSERT_TRUE(createDirectories(files_.directory));
  ASSERT_EQ(::chmod(files_.directory.c_str(), 0777), 0);
  EXPECT_EQ(Installation::open(prefix_).error().message,
            "Updates need a folder that nobody else can use. " + files_.directory +
                " is open to other users. Remove it, then check for updates again.");
}

TEST_F(InstallationTest, IsNotReplacedWhereOthersMayWrite) {
  const auto reason = [&] { return Installation::obstacle(prefix_).value_or(""); };
  ASSERT_EQ(reason(), "");
  for (const std::string& place :
       {directory_ / "opt", prefix_, prefix_ + "/bin", prefix_ + "/share/zephyl-tray/Info.json"}) {
    struct stat before {};
    ASSERT_EQ(::stat(place.c_str(), &before), 0);
    for (const mode_t bit : {0020U, 0002U, 01002U}) {
      ASSERT_EQ(::chmod(place.c_str(), before.st_mode | bit), 0);
      EXPECT_EQ(reason(), formatText("Other users may change {0}, so updates cannot be installed "
                                     "safely. Run: chmod go-w '{0}'",
                                     place));
    }
    ASSERT_EQ(::chmod(place.c_str(), before.st_mode), 0);
  }
  EXPECT_EQ(reason(), "");
}

TEST_F(InstallationTest, IsNotReplacedWhenItBelongsToAnotherUser) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root, to give files to another user";
  const auto reason = [&] { return Installation::obstacle(prefix_).value_or(""); };
  for (const std::string& place : {directory_ / "opt", prefix_, prefix_ + "/bin/zephyl-tray"}) {
    ASSERT_EQ(::chown(place.c_str(), 54399, 54399), 0);
    EXPECT_EQ(reason(),
              place +
                  " belongs to another user. Ask the owner of this installation to update "
                  "it.");
    ASSERT_EQ(::chown(place.c_str(), 0, 0), 0);
  }
  EXPECT_EQ(reason(), "");
}

TEST_F(InstallationTest, MustBelongToTheUser) {
  EXPECT_EQ(Installation::obstacle(prefix_), std::nullopt);
  directory_.write("opt/zephyl/share/zephyl-tray/anything", "");
  EXPECT_EQ(Installation::obstacle(prefix_), std::nullopt);
  const auto reasonAt = [](const std::string& prefix) {
    return Installation::obstacle(prefix).value_or("");
  };
  EXPECT_NE(reasonAt("/usr").find("belongs to your package manager"), std::string::npos);
  directory_.write("opt/zephyl/share/applications/other.desktop", "");
  EXPECT_NE(reasonAt(prefix_).find("shares its folder with other files "
                                   "(share/applications/other.desktop)"),
            std::string::npos);
}

// A kill at every step

/// System calls that change files. A kill before a flush is equivalent to a kill before the next of
/// these calls.
bool changesAnything(unsigned long long number) {
  static const std::set<unsigned long long> changing = {SYS_write,    SYS_mkdir,     SYS_mkdirat,
                                                        SYS_rename,   SYS_renameat2, SYS_unlink,
                                                        SYS_unlinkat, SYS_rmdir,     SYS_symlinkat};
  return changing.contains(number);
}

/// Runs `work` in a child process that is killed before its `step`th change. Returns whether it was
/// killed.
template <typename Work>
bool runAndKillAt(int step, Work work) {
  const pid_t child = ::fork();
  if (child == 0) {
    ::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    ::raise(SIGSTOP);
    work();
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  ::ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
  bool entering = true;
  for (;;) {
    ::ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
    ::waitpid(child, &status, 0);
    if (WIFEXITED(status) || WIFSIGNALED(status)) return false;
    if (!WIFSTOPPED(status) || WSTOPSIG(status) != (SIGTRAP | 0x80)) continue;
    if (std::exchange(entering, !entering)) {
      user_regs_struct registers{};
      ::ptrace(PTRACE_GETREGS, child, nullptr, &registers);
      if (changesAnything(registers.orig_rax) && step-- == 0) {
        ::kill(child, SIGKILL);
        ::waitpid(child, &status, 0);
        return true;
      }
    }
  }
}

TEST_F(InstallationTest, SurvivesAKillAtEveryStepOfAnUpdate) {
  const std::string archive = archiveOf("2.0");
  int kills = 0;
  bool stillOld = true;
  for (bool killed = true; killed; ++kills) {
    install("1.0");
    ASSERT_TRUE(removePath(files_.directory));
    killed = runAndKillAt(kills, [&] {
      if (stage(archive, "2.0")) static_cast<void>(swap("2.0"));
    });
    const std::string standing = version();
    ASSERT_TRUE(standing == "1.0" || standing == "2.0") << standing << " after step " << kills;
    stillOld = standing == "1.0";
    // Update and rollback must succeed from any interrupted state.
    if (stillOld) {
      ASSERT_TRUE(stage(archive, "2.0")) << "after step " << kills;
      ASSERT_TRUE(swap("2.0")) << "after step " << kills;
    }
    ASSERT_EQ(version(), "2.0");
    const auto returned = goBack();
    ASSERT_TRUE(returned) << returned.error().message << " after step " << kills;
    ASSERT_EQ(version(), "1.0") << "after step " << kills;
  }
  EXPECT_FALSE(stillOld) << "the last run was not killed";
  EXPECT_GT(kills, 10);
}

TEST_F(InstallationTest, SurvivesAKillAtEveryStepOfARollback) {
  const std::string archive = archiveOf("2.0");
  int kills = 0;
  for (bool killed = true; killed; ++kills) {
    install("1.0");
    ASSERT_TRUE(removePath(files_.directory));
    ASSERT_TRUE(stage(archive, "2.0"));
    ASSERT_TRUE(swap("2.0"));
    killed = runAndKillAt(kills, [&] { static_cast<void>(goBack()); });
    const std::string standing = version();
    ASSERT_TRUE(standing == "1.0" || standing == "2.0") << standing << " after step " << kills;
    if (standing == "2.0") {
      ASSERT_TRUE(goBack()) << "after step " << kills;
    }
    ASSERT_EQ(version(), "1.0") << "after step " << kills;
    ASSERT_TRUE(stage(archive, "2.0")) << "after step " << kills;
    ASSERT_TRUE(swap("2.0")) << "after step " << kills;
    ASSERT_EQ(version(), "2.0") << "after step " << kills;
  }
  EXPECT_GT(kills, 8);
}

}  // namespace
}  // namespace zephyl
