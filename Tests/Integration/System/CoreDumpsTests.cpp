#include "System/Processes/CoreDumps.hpp"

#include <algorithm>

#include <gtest/gtest.h>

#include <sys/resource.h>

#include "ChildProcessTest.hpp"

namespace zephyl {
namespace {

rlim_t softLimit() {
  struct rlimit limit {};
  ::getrlimit(RLIMIT_CORE, &limit);
  return limit.rlim_cur;
}

using CoreDumpsTest = ChildProcessTest;

TEST_F(CoreDumpsTest, AreDisabledForTheProcessAndNotForItsChildren) {
  struct rlimit before {};
  ASSERT_EQ(::getrlimit(RLIMIT_CORE, &before), 0);
  if (before.rlim_max == 0) GTEST_SKIP() << "core dumps are disabled on this system";
  struct rlimit allowed = before;
  allowed.rlim_cur = std::min<rlim_t>(before.rlim_max, 4096);
  ASSERT_EQ(::setrlimit(RLIMIT_CORE, &allowed), 0);
  coreDumps::disable();
  EXPECT_EQ(softLimit(), 0U);

  // The shell counts in blocks of 512 or 1024 bytes, and prints 0 only if core dumps are disabled.
  launchWatched(test::script("test $(ulimit -S -c) -gt 0"));
  EXPECT_EQ(witness_.waitForExit(), test::exited(0));

  coreDumps::restore();
  EXPECT_EQ(softLimit(), allowed.rlim_cur);
  ASSERT_EQ(::setrlimit(RLIMIT_CORE, &before), 0);
}

}  // namespace
}  // namespace zephyl
