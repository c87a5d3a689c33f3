#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include <malloc.h>
#include <unistd.h>

#include "Integration/RealChildren.hpp"
#include "Support/Eventually.hpp"
#include "Support/Processes.hpp"
#include "Support/TrayWorld.hpp"
#include "ZephylTray/Tailnet/TailnetProcess.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

/// The number of starts after which bounded structures (the log's ring, buffers, the heap) are
/// full.
constexpr int warmUp = 200;
constexpr int crashes = 1000;

/// The heap in use may grow by the difference between two logs of 200 lines, for example a number
/// with one more digit. A leak of forty bytes per start would exceed this.
constexpr std::size_t heapAllowance = 32UL * 1024;

/// Resident memory may grow by fragmentation of the heap and by the stacks of new threads.
constexpr std::size_t residentAllowance = 1024UL * 1024;

/// The resources of this process.
struct Holdings {
  std::ptrdiff_t descriptors = test::openDescriptors();
  std::size_t heap = ::mallinfo2().uordblks;
  std::size_t resident = residentBytes();

  static std::ptrdiff_t threadCount() {
    const std::filesystem::directory_iterator threads("/proc/self/task");
    return std::distance(begin(threads), end(threads));
  }

  static std::size_t residentBytes() {
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages >> pages;
    return pages * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  }
};

/// Depending on its process id the daemon ends at once, or the client ends or is killed.
constexpr auto daemonScript =
    "#!/bin/sh\n"
    "echo daemon $$ at your service\n"
    "[ $(($$ / 8 % 4)) = 0 ] && exit 3\n"
    "exec sleep 600\n";
constexpr auto clientScript =
    "#!/bin/sh\n"
    "echo client $$ at your service\n"
    "[ $(($$ / 4 % 2)) = 0 ] && exit 3\n"
    "kill -KILL $$\n";

class Soak : public ::testing::Test {
 protected:
  Soak() {
    world_.addProgram("packages/tailnet-client/tailscaled", daemonScript);
    world_.addProgram("packages/tailnet-client/zephyl-tailnet", clientScript);
    const ServerEntry server{.id = "0123456789ab-4000-8000-000000000000",
                             .tailnetFingerprint = std::string(32, 'a'),
                             .ports = {1055, 8800, "127.100.0.3", 8085},
                             .enabled = true};
    Servers::replaceAll({server});
    tailnet_ = std::make_shared<TailnetProcess>(runtime_.runtime(), server);
  }

  static Duration delayAfter(std::int64_t failures) {
    if (failures > TailnetProcess::maxFailures) return TailnetProcess::stalledDelay;
    return std::min<Duration>(1s * (1 << failures), 60s);
  }

  /// Waits in real time until terminated children have ended.
  void waitForChildren() {
    ASSERT_TRUE(test::eventually([&] {
      runtime_.settle();
      return test::childrenOf(::getpid()) == guardian_;
    }));
  }

  /// Starts pairs until `count` of them have failed, and ends the last one.
  void crash(int times) {
    tailnet_->start();
    while (tailnet_->state().failureCount < times) {
      const auto failures = tailnet_->state().failureCount;
      // Only to the next start, because its children end in real time.
      runtime_.advance(failures == 0 ? Duration(0) : delayAfter(failures));
      runtime_.advance(TailnetProcess::clientDelay);
      ASSERT_TRUE(test::eventually([&] {
        runtime_.settle();
        return tailnet_->state().failureCount > failures;
      }));
      waitForChildren();
    }
    tailnet_->stop();
    waitForChildren();
    runtime_.reactor.run([] {});  // an exit is reported before the child's descriptors are closed
    for (const auto& line : tailnet_->recentLog()) {
      ASSERT_EQ(line.find("failed to start"), std::string::npos) << line;
    }
  }

  test::TrayWorld world_;
  test::RealChildren runtime_;
  const std::vector<pid_t> guardian_ = test::childrenOf(::getpid());
  std::shared_ptr<TailnetProcess> tailnet_;
};

TEST_F(Soak, AThousandCrashesOfAPairLeaveNothingBehind) {
  const auto threads = Holdings::threadCount();
  crash(warmUp);
  const Holdings before;
  crash(crashes);
  EXPECT_TRUE(test::eventually([&] { return Holdings::threadCount() == threads; }));
  const Holdings after;
  EXPECT_EQ(after.descriptors, before.descriptors);
  EXPECT_EQ(test::childrenOf(::getpid()), guardian_);  // zombies included
  EXPECT_LE(after.heap, before.heap + heapAllowance);
  EXPECT_LE(after.resident, before.resident + residentAllowance);
  EXPECT_LE(runtime_.clock.pendingTimers(), 2U);
  RecordProperty("heap_growth", static_cast<int>(after.heap) - static_cast<int>(before.heap));
  RecordProperty("resident_growth",
                 static_cast<int>(after.resident) - static_cast<int>(before.resident));
}

}  // namespace
}  // namespace zephyl
