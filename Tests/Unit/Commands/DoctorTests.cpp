#include "ZephylTray/Commands/Doctor/Doctor.hpp"

#include <algorithm>

#include <gtest/gtest.h>

#include "ZephylTray/Commands/Doctor/SessionChecks.hpp"
#include "ZephylTray/Commands/Doctor/SystemChecks.hpp"
#include "ZephylTray/Commands/Doctor/TrayChecks.hpp"

namespace zephyl {
namespace {

using enum FindingState;
constexpr uid_t user = 1000;

bool isAnyWrong(const Findings& findings) {
  return std::ranges::count(findings, wrong, &Finding::state) > 0;
}

PortFacts controlPort(std::optional<uid_t> owner) {
  return {.check = "control port",
          .setting = "onboardingPort",
          .port = 8801,
          .owner = owner,
          .isOfTheTray = true};
}

TEST(Doctor, WritesALineForEachFinding) {
  EXPECT_EQ(
      findingsText({{.check = "a", .message = "Fine."},
                    {.check = "b", .state = wrong, .message = "Bad\n", .advice = "Mend it."}}),
      "ok    a: Fine.\nwrong b: Bad␊ Mend it.\n");
}

TEST(Doctor, ExplainsAMissingIcon) {
  const SessionServices complete{
      .bus = true, .watcher = true, .host = true, .notifications = true, .portal = true};
  EXPECT_FALSE(isAnyWrong(checkSession(complete, true)));
  auto session = complete;
  session.host = false;
  EXPECT_EQ(checkSession(session, true)[1].state, wrong);
  session.watcher = false;
  EXPECT_NE(checkSession(session, true)[1].advice.find("AppIndicator"), std::string::npos);
  session = complete;
  session.portal = false;
  EXPECT_FALSE(isAnyWrong(checkSession(session, true)));
  EXPECT_EQ(checkSession({}, true)[0].state, wrong);
}

TEST(Doctor, FindsNothingWrongOnAServerWithoutASession) {
  EXPECT_FALSE(isAnyWrong(checkSession({}, false)));
  EXPECT_FALSE(isAnyWrong(checkSession({.bus = true}, false)));
  EXPECT_EQ(checkSession({}, false)[0].state, note);
}

TEST(Doctor, NamesTheUserWhoHoldsAPort) {
  EXPECT_EQ(checkPort(controlPort(user), true, user).state, ok);
  const auto foreign = checkPort(controlPort(1001), true, user);
  EXPECT_EQ(foreign.state, wrong);
  EXPECT_NE(foreign.message.find("user id 1001"), std::string::npos);
  EXPECT_NE(foreign.advice.find("defaults write onboardingPort"), std::string::npos);
  EXPECT_EQ(checkPort(controlPort(0), true, user).state, ok);
}

TEST(Doctor, ExpectsTheTrayOnItsPortWhileItRuns) {
  EXPECT_EQ(checkPort(controlPort(std::nullopt), false, user).state, ok);
  EXPECT_EQ(checkPort(controlPort(std::nullopt), true, user).state, wrong);
  EXPECT_EQ(checkPort(controlPort(user), false, user).state, wrong);
  auto agent = controlPort(user);
  agent.isOfTheTray = false;
  EXPECT_EQ(checkPort(agent, false, user).state, ok);
}

TEST(Doctor, ReportsAnInvalidPort) {
  auto port = controlPort(std::nullopt);
  port.port = 70000;
  EXPECT_EQ(checkPort(port, false, user).message, "70000 is not a port number.");
}

TEST(Doctor, IncludesTheReportOfTheRunningTray) {
  EXPECT_EQ(checkTray({})[0].state, note);
  EXPECT_EQ(checkTray({.process = 7})[0].state, wrong);
  CommandStatus status{.pid = 7, .summary = "reachable"};
  EXPECT_EQ(checkTray({.process = 7, .status = status})[0].message,
            "It runs as process 7: reachable.");
  status.attention = {{.code = "requestsWaiting"}, {.code = "noTrayHost"}};
  const auto findings = checkTray({.process = 7, .status = status});
  EXPECT_EQ(findings[1].state, note);
  EXPECT_EQ(findings[2].state, wrong);
}

TEST(Doctor, ReportsAClockBeforeTheInstallation) {
  const CalendarTime installation{std::chrono::hours(24 * 365 * 56)};
  EXPECT_EQ(checkClock(installation + std::chrono::hours(1), installation).state, ok);
  EXPECT_EQ(checkClock(installation - std::chrono::hours(1), installation).state, ok);
  EXPECT_EQ(checkClock(installation - std::chrono::hours(48), installation).state, wrong);
}

TEST(Doctor, ReportsALowLimitOfDescriptors) {
  const auto fine = checkDescriptorLimit(1024);
  EXPECT_EQ(fine.state, ok);
  EXPECT_EQ(fine.check, "descriptor limit");
  EXPECT_NE(fine.message, "");
  const auto low = checkDescriptorLimit(256);
  EXPECT_EQ(low.state, wrong);
  EXPECT_NE(low.message.find("256 files"), std::string::npos) << low.message;
  EXPECT_NE(low.advice, "");
}

}  // namespace
}  // namespace zephyl
