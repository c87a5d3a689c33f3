#include <algorithm>
#include <array>
#include <filesystem>
#include <optional>
#include <ostream>
#include <ranges>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Support/TestRuntime.hpp"
#include "Support/TrayWorld.hpp"
#include "ZephylTray/Tailnet/TailnetProcess.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

/// The states that the header describes.
enum class State { idle, restarting, starting, running, failed };

/// The events of a tailnet. An event of a child that has already ended was still pending.
enum class Event {
  start,
  stop,
  restart,
  redeem,
  timePasses,  // until something happens, ten minutes at most
  halfASecondPasses,
  daemonExits,
  clientExits,
  bothExit,
  tunnelIsUp,
  joins,
  enrolmentFails,
  programsVanish,
  programsReturn,
  launchesFail,
  launchesSucceed,
};

struct Row {
  State from;
  std::vector<Event> events;
  State to;
  std::int64_t failures;
  std::size_t children;  // running ones
};

const char* nameOf(State state) {
  constexpr std::array names{"idle", "restarting", "starting", "running", "failed"};
  return names.at(static_cast<std::size_t>(state));
}

const char* nameOf(Event event) {
  constexpr std::array names{"start",      "stop",           "restart",      "redeem",
                             "timePasses", "halfASecond",    "daemonExits",  "clientExits",
                             "bothExit",   "tunnelIsUp",     "joins",        "enrolmentFails",
                             "noPrograms", "programsReturn", "launchesFail", "launchesSucceed"};
  return names.at(static_cast<std::size_t>(event));
}

std::string nameOf(const Row& row) {
  std::string name = nameOf(row.from);
  for (const Event event : row.events) name.append("_").append(nameOf(event));
  return name;
}

std::ostream& operator<<(std::ostream& out, State state) {
  return out << nameOf(state);
}

std::ostream& operator<<(std::ostream& out, const Row& row) {
  return out << nameOf(row);
}

using enum State;
using enum Event;

const std::vector<Row> table{
    {idle, {}, idle, 0, 0},
    {idle, {start}, starting, 0, 1},
    {idle, {stop}, idle, 0, 0},
    {idle, {restart}, restarting, 0, 0},
    {idle, {redeem}, restarting, 0, 0},
    {idle, {timePasses}, idle, 0, 0},
    {idle, {programsVanish, start}, idle, 0, 0},
    {idle, {programsVanish, start, programsReturn, timePasses}, idle, 0, 0},
    {idle, {programsVanish, restart, timePasses}, idle, 0, 0},
    {idle, {launchesFail, start}, failed, 1, 0},
    {idle, {stop, start}, starting, 0, 1},

    {restarting, {start}, starting, 0, 1},
    {restarting, {start, timePasses}, running, 0, 2},
    {restarting, {stop}, idle, 0, 0},
    {restarting, {restart}, restarting, 0, 0},
    {restarting, {halfASecondPasses, restart, halfASecondPasses}, restarting, 0, 0},
    {restarting, {redeem}, restarting, 0, 0},
    {restarting, {halfASecondPasses}, restarting, 0, 0},
    {restarting, {timePasses}, starting, 0, 1},
    {restarting, {programsVanish, timePasses}, idle, 0, 0},
    {restarting, {programsVanish, start}, restarting, 0, 0},
    {restarting, {launchesFail, timePasses}, failed, 1, 0},
    {restarting, {launchesFail, start}, failed, 1, 0},

    {starting, {start}, starting, 0, 1},
    {starting, {stop}, idle, 0, 0},
    {starting, {stop, timePasses}, idle, 0, 0},
    {starting, {restart}, restarting, 0, 0},
    {starting, {redeem}, restarting, 0, 0},
    {starting, {restart, timePasses, halfASecondPasses}, starting, 0, 1},
    {starting, {halfASecondPasses}, starting, 0, 1},
    {starting, {timePasses}, running, 0, 2},
    {starting, {daemonExits}, failed, 1, 0},
    {starting, {daemonExits, halfASecondPasses, halfASecondPasses}, failed, 1, 0},
    {starting, {launchesFail, timePasses}, failed, 1, 1},
    {starting, {launchesFail, timePasses, daemonExits}, failed, 1, 0},
    {starting, {launchesFail, timePasses, launchesSucceed, timePasses}, starting, 1, 1},
    {starting, {launchesFail, timePasses, stop}, idle, 1, 0},
    {starting, {programsVanish, start}, starting, 0, 1},

    {running, {}, running, 0, 2},
    {running, {start}, running, 0, 2},
    {running, {stop}, idle, 0, 0},
    {running, {restart}, restarting, 0, 0},
    {running, {redeem}, restarting, 0, 0},
    {running, {timePasses}, running, 0, 2},
    {running, {daemonExits}, failed, 1, 0},
    {running, {clientExits}, failed, 1, 0},
    {running, {bothExit}, failed, 1, 0},
    {running, {tunnelIsUp}, running, 0, 2},
    {running, {joins}, running, 0, 2},
    {running, {enrolmentFails}, idle, 0, 0},
    {running, {enrolmentFails, timePasses}, idle, 0, 0},
    {running, {enrolmentFails, start}, starting, 0, 1},
    {running, {enrolmentFails, redeem}, restarting, 0, 0},
    {running, {programsVanish, start}, running, 0, 2},
    {running, {stop, tunnelIsUp}, idle, 0, 0},
    {running, {restart, tunnelIsUp}, restarting, 0, 0},
    {running, {restart, enrolmentFails}, restarting, 0, 0},
    {running, {redeem, enrolmentFails, timePasses, timePasses}, running, 0, 2},

    {failed, {start}, starting, 0, 1},
    {failed, {start, timePasses}, running, 0, 2},
    {failed, {stop}, idle, 1, 0},
    {failed, {stop, timePasses}, idle, 1, 0},
    {failed, {restart}, restarting, 0, 0},
    {failed, {redeem}, restarting, 0, 0},
    {failed, {halfASecondPasses}, failed, 1, 0},
    {failed, {timePasses}, starting, 1, 1},
    {failed, {timePasses, timePasses}, running, 1, 2},
    {failed, {timePasses, timePasses, tunnelIsUp}, running, 0, 2},
    {failed, {timePasses, daemonExits}, failed, 2, 0},
    {failed, {timePasses, timePasses, clientExits}, failed, 2, 0},
    {failed, {tunnelIsUp}, failed, 1, 0},
    {failed, {enrolmentFails}, failed, 1, 0},
    {failed, {programsVanish, start}, failed, 0, 0},
    {failed, {programsVanish, timePasses}, idle, 1, 0},
    {failed, {launchesFail, timePasses}, failed, 2, 0},
    {failed, {launchesFail, start}, failed, 1, 0},
};

class TailnetTransitions : public ::testing::TestWithParam<Row> {
 protected:
  TailnetTransitions() {
    addPrograms();
    const ServerEntry server{.id = "0123456789ab-4000-8000-000000000000",
                             .tailnetFingerprint = std::string(32, 'a'),
                             .ports = {1055, 8800, "127.100.0.3", 8085},
                             .enabled = true};
    Servers::replaceAll({server});
    tailnet_ = std::make_shared<TailnetProcess>(runtime_.runtime(), server);
  }

  void addPrograms() {
    world_.addProgram("packages/tailnet-client/tailscaled");
    world_.addProgram("packages/tailnet-client/zephyl-tailnet");
  }

  void reach(State state) {
    switch (state) {
      case idle:
        return;
      case restarting:
        return happen(restart);
      case starting:
        return happen(start);
      case running:
        happen(start);
        return happen(timePasses);
      case failed:
        reach(running);
        return happen(clientExits);
    }
  }

  void happen(Event event) {
    act(event);
    runtime_.settle();
  }

  void act(Event event) {
    switch (event) {
      case start:
        return tailnet_->start();
      case stop:
        return tailnet_->stop();
      case restart:
        return tailnet_->restart();
      case redeem:
        return tailnet_->startRedeeming("hskey-auth-secret");
      case timePasses:
        return static_cast<void>(timeUntilSomethingHappens());
      case halfASecondPasses:
        return runtime_.advance(500ms);
      case daemonExits:
        return newest("tailscaled").exit({ExitStatus::Reason::exited, 1});
      case clientExits:
        return newest("zephyl-tailnet").exit({ExitStatus::Reason::signalled, 11});
      case bothExit:
        act(clientExits);
        return act(daemonExits);
      case tunnelIsUp:
        return newest("zephyl-tailnet").print({"data tunnel on http://127.100.0.3:80"});
      case joins:
        return newest("zephyl-tailnet").print({"joined the tailnet"});
      case enrolmentFails:
        return newest("zephyl-tailnet").print({"ENROLMENT FAILED: key expired"});
      case programsVanish:
        std::filesystem::remove_all(world_.source() + "/packages/tailnet-client");
        return;
      case programsReturn:
        return addPrograms();
      case launchesFail:
        return runtime_.launcher.failWith("no memory");
      case launchesSucceed:
        return runtime_.launcher.failWith(std::nullopt);
    }
  }

  test::FakeChild& newest(std::string_view program) {
    for (const auto& child : runtime_.launcher.children() | std::views::reverse) {
      if (child->options().executable.ends_with(program)) return *child;
    }
    throw std::logic_error("no such child was launched");
  }

  std::size_t runningChildren() {
    return static_cast<std::size_t>(std::ranges::count_if(
        runtime_.launcher.children(), [](const auto& child) { return child->isRunning(); }));
  }

  /// Advances time until a child is launched or a launch fails. Returns nullopt after ten minutes.
  std::optional<Duration> timeUntilSomethingHappens() {
    constexpr auto step = 100ms;
    const auto launches = runtime_.launcher.children().size();
    const auto failures = tailnet_->state().failureCount;
    for (Duration passed = step; passed <= 600s; passed += step) {
      runtime_.advance(step);
      const bool launched = runtime_.launcher.children().size() != launches;
      if (launched || tailnet_->state().failureCount != failures) return passed;
    }
    return std::nullopt;
  }

  /// Derives the state from the next action of the tailnet when nothing prevents it.
  State observed() {
    happen(launchesSucceed);
    happen(programsReturn);
    const bool bothRun = tailnet_->isRunning();
    const auto next = timeUntilSomethingHappens();
    if (!next) return bothRun ? running : idle;
    if (tailnet_->isRunning()) return starting;
    return *next <= TailnetProcess::restartDelay ? restarting : failed;
  }

  test::TrayWorld world_;
  test::TestRuntime runtime_;
  std::shared_ptr<TailnetProcess> tailnet_;
};

TEST_P(TailnetTransitions, LeadToTheExpectedState) {
  const Row& row = GetParam();
  reach(row.from);
  for (const Event event : row.events) happen(event);
  EXPECT_EQ(tailnet_->state().failureCount, row.failures);
  EXPECT_EQ(runningChildren(), row.children);
  EXPECT_EQ(observed(), row.to);
}

INSTANTIATE_TEST_SUITE_P(Table, TailnetTransitions, ::testing::ValuesIn(table),
                         [](const auto& instance) { return nameOf(instance.param); });

}  // namespace
}  // namespace zephyl
