#include "ZephylTray/Commands/Protocol/TrayLock.hpp"

#include <gtest/gtest.h>

#include <unistd.h>

#include "Support/TemporaryDirectory.hpp"
#include "ZephylTray/App/SingleOwnerLock.hpp"

namespace zephyl {
namespace {

constexpr auto locks =
    "1: POSIX  ADVISORY  WRITE 4711 08:01:17 0 EOF\n"
    "2: FLOCK  ADVISORY  WRITE 4711 08:01:18 0 EOF\n"
    "2: -> FLOCK  ADVISORY  WRITE 4712 08:01:18 0 EOF\n";

TEST(TrayLock, IsHeldByTheProcessNamedByKernelAndFile) {
  EXPECT_EQ(lockHolder("4711\n", 18, locks), 4711);
  EXPECT_EQ(lockHolder("4711\n", 17, locks), std::nullopt);  // a lock of another kind
  EXPECT_EQ(lockHolder("4712\n", 18, locks), std::nullopt);  // a waiting process
  EXPECT_EQ(lockHolder("4711\n", 118, locks), std::nullopt);
  EXPECT_EQ(lockHolder("", 18, locks), std::nullopt);
  EXPECT_EQ(lockHolder("-1\n", 18, locks), std::nullopt);
}

TEST(TrayLock, IsFoundInTheBaseDirectory) {
  const test::TemporaryDirectory directory;
  EXPECT_EQ(lockHolder(directory.path()), std::nullopt);
  {
    const auto lock = SingleOwnerLock::acquire(directory / "tray.lock");
    EXPECT_EQ(lockHolder(directory.path()), ::getpid());
  }
  EXPECT_EQ(lockHolder(directory.path()), std::nullopt);
}

}  // namespace
}  // namespace zephyl
