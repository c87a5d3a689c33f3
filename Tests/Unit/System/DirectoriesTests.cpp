#include "System/Files/Directories.hpp"

#include <gtest/gtest.h>

#include <pwd.h>
#include <unistd.h>

#include "Support/HomelessUser.hpp"
#include "Support/TemporaryDirectory.hpp"

namespace zephyl {
namespace {

using test::ScopedVariable;

TEST(Directories, FollowTheEnvironment) {
  const ScopedVariable home("HOME", "/h"), data("XDG_DATA_HOME", "/d"),
      configuration("XDG_CONFIG_HOME", "/c"), temporary("TMPDIR", "/t");
  EXPECT_EQ(directories::home(), "/h");
  EXPECT_EQ(directories::applicationSupport(), "/d");
  EXPECT_EQ(directories::configuration(), "/c");
  EXPECT_EQ(directories::temporary(), "/t");
}

TEST(Directories, AreInTheHomeDirectoryIfVariablesAreUnsetOrRelative) {
  const ScopedVariable home("HOME", "/h/");
  for (const auto* value : {"", "relative/path"}) {
    const ScopedVariable data("XDG_DATA_HOME", value), configuration("XDG_CONFIG_HOME", value);
    EXPECT_EQ(directories::applicationSupport(), "/h/.local/share");
    EXPECT_EQ(directories::configuration(), "/h/.config");
  }
}

TEST(Directories, SharedDataIsSearchedInTheUsersDirectoryFirst) {
  using Paths = std::vector<std::string>;
  const ScopedVariable own("XDG_DATA_HOME", "/d");
  {
    const ScopedVariable shared("XDG_DATA_DIRS", "");
    EXPECT_EQ(directories::data(), (Paths{"/d", "/usr/local/share", "/usr/share"}));
  }
  const ScopedVariable shared("XDG_DATA_DIRS", "/a::/b");
  EXPECT_EQ(directories::data(), (Paths{"/d", "/a", "/b"}));
}

TEST(Directories, ReadTheHomeDirectoryFromThePasswordDatabaseIfHOMEIsUnset) {
  const passwd* entry = ::getpwuid(::geteuid());
  if (entry == nullptr) GTEST_SKIP() << "the user is not in the password database";
  const ScopedVariable unset("HOME");
  EXPECT_EQ(directories::home(), entry->pw_dir);
  const ScopedVariable empty("HOME", "");
  EXPECT_EQ(directories::home(), entry->pw_dir);
}

TEST(Directories, ContainNoApplicationSupportWithoutAHomeDirectory) {
  const auto none = test::holdsWithoutHome(
      [] { return !directories::applicationSupport() && directories::home() == "/"; });
  if (!none) GTEST_SKIP() << "needs the right to become another user";
  EXPECT_TRUE(*none);
}

TEST(Directories, FallBackToTmp) {
  const ScopedVariable unset("TMPDIR");
  EXPECT_EQ(directories::temporary(), "/tmp");
  const ScopedVariable empty("TMPDIR", "");
  EXPECT_EQ(directories::temporary(), "/tmp");
}

}  // namespace
}  // namespace zephyl
