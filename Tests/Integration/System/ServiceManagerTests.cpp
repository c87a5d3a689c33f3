#include "System/Processes/ServiceManager.hpp"

#include <algorithm>
#include <array>
#include <chrono>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "Support/LogCapture.hpp"
#include "Support/ManualClock.hpp"
#include "Support/TemporaryDirectory.hpp"
#include "System/Concurrency/MainLoop.hpp"
#include "System/Files/Environment.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;
using test::logOf;
using test::ManualClock;
using test::ScopedVariable;
using test::TemporaryDirectory;

/// The manager's datagram socket. A name that begins with "@" is abstract.
class Receiver {
 public:
  explicit Receiver(const std::string& name)
      : socket_(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::ranges::copy(name, address.sun_path);
    if (name.starts_with('@')) address.sun_path[0] = '\0';
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
    EXPECT_EQ(::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), size), 0);
  }

  /// Returns the messages since the last call.
  std::vector<std::string> received() {
    std::vector<std::string> all;
    std::array<char, 256> buffer{};
    for (;;) {
      const auto size = ::recv(socket_.get(), buffer.data(), buffer.size(), 0);
      if (size < 0) return all;
      all.emplace_back(buffer.data(), static_cast<std::size_t>(size));
    }
  }

 private:
  FileDescriptor socket_;
};

/// The environment of a service, without the variables that a test does not set.
class ServiceManagerTest : public testing::Test {
 protected:
  static std::string thisProcess() { return std::to_string(::getpid()); }

  const TemporaryDirectory directory_;
  const std::string path_ = directory_ / "notify";
  Receiver receiver_{path_};
  ScopedVariable noLimit_{"WATCHDOG_USEC"};
  ScopedVariable noProcess_{"WATCHDOG_PID"};
  ScopedVariable address_{"NOTIFY_SOCKET", path_};
  MainLoop loop_;
  ManualClock clock_;
};

TEST_F(ServiceManagerTest, IsNotifiedWhenTheServiceIsReadyReloadsAndStops) {
  const auto manager = ServiceManager::fromEnvironment();
  EXPECT_TRUE(manager.exists());
  manager.notifyReady();
  manager.notifyReloading();
  manager.notifyStopping();
  EXPECT_EQ(receiver_.received(),
            (std::vector<std::string>{"READY=1", "RELOADING=1\nWATCHDOG=1", "STOPPING=1"}));
}

TEST_F(ServiceManagerTest, MayHaveAnAbstractAddress) {
  const std::string name = "@zephyl-test-" + thisProcess();
  Receiver receiver(name);
  const ScopedVariable address("NOTIFY_SOCKET", name);
  ServiceManager::fromEnvironment().notifyReady();
  EXPECT_EQ(receiver.received(), std::vector<std::string>{"READY=1"});
}

TEST_F(ServiceManagerTest, IsAbsentWithoutAnAddress) {
  const ScopedVariable address("NOTIFY_SOCKET");
  const ScopedVariable limit("WATCHDOG_USEC", "60000000");
  const auto manager = ServiceManager::fromEnvironment();
  EXPECT_FALSE(manager.exists());
  manager.notifyReady();
  EXPECT_FALSE(manager.feedWatchdog(loop_, clock_));
  EXPECT_EQ(clock_.pendingTimers(), 0U);
}

TEST_F(ServiceManagerTest, IgnoresAnUnsupportedAddress) {
  for (const std::string& each :
       {std::string("vsock:2:1234"), std::string("@"), "/" + std::string(200, 'x')}) {
    const ScopedVariable address("NOTIFY_SOCKET", each);
    const auto log = logOf([&] { EXPECT_FALSE(ServiceManager::fromEnvironment().exists()); });
    EXPECT_NE(log.find(each), std::string::npos) << log;
  }
}

TEST_F(ServiceManagerTest, GetsTwoWatchdogMessagesPerInterval) {
  const ScopedVariable limit("WATCHDOG_USEC", "60000000");
  const ScopedVariable process("WATCHDOG_PID", thisProcess());
  const auto manager = ServiceManager::fromEnvironment();
  const Timer watchdog = manager.feedWatchdog(loop_, clock_);
  clock_.advance(29s, [this] { loop_.runPending(); });
  EXPECT_TRUE(receiver_.received().empty());
  clock_.advance(31s, [this] { loop_.runPending(); });
  EXPECT_EQ(receiver_.received(), (std::vector<std::string>{"WATCHDOG=1", "WATCHDOG=1"}));
}

TEST_F(ServiceManagerTest, GetsNoWatchdogMessageFromAMainLoopThatHangs) {
  const ScopedVariable limit("WATCHDOG_USEC", "60000000");
  const auto manager = ServiceManager::fromEnvironment();
  const Timer watchdog = manager.feedWatchdog(loop_, clock_);
  clock_.advance(120s);
  EXPECT_TRUE(receiver_.received().empty());
}

TEST_F(ServiceManagerTest, WatchesOnlyTheProcessThatItHasStarted) {
  const ScopedVariable limit("WATCHDOG_USEC", "60000000");
  const ScopedVariable process("WATCHDOG_PID", "1");
  const auto manager = ServiceManager::fromEnvironment();
  EXPECT_TRUE(manager.exists());
  EXPECT_FALSE(manager.feedWatchdog(loop_, clock_));
}

TEST_F(ServiceManagerTest, HasNoWatchdogWithoutAnInterval) {
  for (const char* each : {"", "0", "-5", "soon"}) {
    const ScopedVariable limit("WATCHDOG_USEC", each);
    EXPECT_FALSE(ServiceManager::fromEnvironment().feedWatchdog(loop_, clock_)) << each;
  }
}

TEST_F(ServiceManagerTest, IsKnownToTheProgramThatIsExecutedNext) {
  const ScopedVariable limit("WATCHDOG_USEC", "60000000");
  const ScopedVariable process("WATCHDOG_PID", thisProcess());
  const auto manager = ServiceManager::fromEnvironment();
  removePrivateEnvironmentVariables();
  EXPECT_FALSE(ServiceManager::fromEnvironment().exists());
  manager.restoreEnvironment();
  const auto next = ServiceManager::fromEnvironment();
  EXPECT_TRUE(next.exists());
  EXPECT_TRUE(next.feedWatchdog(loop_, clock_));
}

TEST_F(ServiceManagerTest, MayHaveEnded) {
  const auto manager = ServiceManager::fromEnvironment();
  ::unlink(path_.c_str());
  const auto log = logOf([&] { manager.notifyStopping(); });
  EXPECT_NE(log.find("could not notify the service manager"), std::string::npos);
}

TEST_F(ServiceManagerTest, NeverBlocksTheService) {
  const auto manager = ServiceManager::fromEnvironment();
  std::string log;
  for (int count = 0; count < 10'000 && log.empty(); ++count) {
    log = logOf([&] { manager.notifyReady(); });
  }
  EXPECT_NE(log.find("could not notify the service manager"), std::string::npos);
}

}  // namespace
}  // namespace zephyl
