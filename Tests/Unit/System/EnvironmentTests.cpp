#include "System/Files/Environment.hpp"

#include <gtest/gtest.h>

#include <unistd.h>

#include "Support/TemporaryDirectory.hpp"

namespace zephyl {
namespace {

using test::ScopedVariable;

TEST(Environment, ReadsAVariable) {
  const ScopedVariable set("ZEPHYL_TEST_SET", "a=b");
  const ScopedVariable empty("ZEPHYL_TEST_EMPTY", "");
  const ScopedVariable unset("ZEPHYL_TEST_UNSET");
  EXPECT_EQ(environmentVariable("ZEPHYL_TEST_SET"), "a=b");
  EXPECT_EQ(environmentVariable("ZEPHYL_TEST_EMPTY"), "");
  EXPECT_EQ(environmentVariable("ZEPHYL_TEST_UNSET"), std::nullopt);
}

TEST(Environment, CopiesTheWholeOfIt) {
  const ScopedVariable set("ZEPHYL_TEST_SET", "a=b");
  const ScopedVariable unset("ZEPHYL_TEST_UNSET");
  const Environment environment = currentEnvironment();
  EXPECT_EQ(environment.at("ZEPHYL_TEST_SET"), "a=b");
  EXPECT_FALSE(environment.contains("ZEPHYL_TEST_UNSET"));
  std::size_t count = 0;
  while (environ[count] != nullptr) ++count;
  EXPECT_EQ(environment.size(), count);
}

TEST(Environment, LosesVariablesForThisProcessOnly) {
  const ScopedVariable notify("NOTIFY_SOCKET", "/run/notify");
  const ScopedVariable watchdog("WATCHDOG_USEC", "1000000");
  const ScopedVariable watched("WATCHDOG_PID", "1");
  const ScopedVariable token("XDG_ACTIVATION_TOKEN", "token");
  const ScopedVariable startup("DESKTOP_STARTUP_ID", "id");
  const ScopedVariable other("ZEPHYL_TEST_OTHER", "stays");
  const ScopedVariable similar("WATCHDOGS", "stays");
  removePrivateEnvironmentVariables();
  for (const char* name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID", "XDG_ACTIVATION_TOKEN",
                           "DESKTOP_STARTUP_ID"}) {
    EXPECT_EQ(environmentVariable(name), std::nullopt) << name;
  }
  EXPECT_EQ(environmentVariable("ZEPHYL_TEST_OTHER"), "stays");
  EXPECT_EQ(environmentVariable("WATCHDOGS"), "stays");
}

}  // namespace
}  // namespace zephyl
