#include "Desktop/Freedesktop/Bus/Bus.hpp"

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <future>

#include <gtest/gtest.h>

#include <sys/resource.h>

#include "Support/Eventually.hpp"
#include "Support/ManualClock.hpp"
#include "Support/PrivateBus.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

constexpr const char* objectPath = "/com/zephyl/test";
constexpr const char* objectInterface = "com.zephyl.Test";

/// Counts the calls of "Count". The first one blocks until the test releases it.
class Counter final : public Bus::Client {
 public:
  void connected(BusConnection& connection) override {
    static const sd_bus_vtable table[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_METHOD("Count", "", "", (answerCall<&Counter::count, Counter>), 0),
        SD_BUS_VTABLE_END,
    };
    object_ = connection.addObject(objectPath, objectInterface, table, this);
    name_.set_value(connection.uniqueName());
  }
  void disconnected() override { object_.reset(); }

  std::string name() { return name_.get_future().get(); }
  void waitForFirstCall() { arrived_.get_future().wait(); }
  void goOn() { released_.set_value(); }
  [[nodiscard]] int handled() const { return handled_; }

 private:
  int count(sd_bus_message& call) {
    if (handled_ == 0) {
      arrived_.set_value();
      released_.get_future().wait();
    }
    ++handled_;
    return sd_bus_reply_method_return(&call, "");
  }

  BusSlot object_;
  std::promise<std::string> name_;
  std::promise<void> arrived_;
  std::promise<void> released_;
  std::atomic<int> handled_ = 0;
};

/// A connection of another program, used by the test's thread.
class Peer {
 public:
  Peer() { sd_bus_open_user(&bus_); }
  ~Peer() { sd_bus_flush_close_unref(bus_); }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  void count(const std::string& service, int calls) {
    for (int i = 0; i < calls; ++i) {
      sd_bus_message* raw = nullptr;
      sd_bus_message_new_method_call(bus_, &raw, service.c_str(), objectPath, objectInterface,
                                     "Count");
      const BusMessage call(raw);
      sd_bus_message_set_expect_reply(raw, 0);
      sd_bus_send(bus_, raw, nullptr);
    }
  }
  /// Returns when the bus has handled everything that was sent.
  void settle() {
    sd_bus_call_method(bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                       "org.freedesktop.DBus", "GetId", nullptr, nullptr, "");
  }

 private:
  sd_bus* bus_ = nullptr;
};

TEST(Bus, TasksRunHoweverManyMessagesWait) {
  const test::PrivateBus daemon;
  ASSERT_TRUE(daemon.isUp());
  test::ManualClock clock;
  Counter counter;
  Bus bus(clock);
  bus.add(counter);
  bus.start();
  const auto name = counter.name();
  Peer peer;
  constexpr int calls = 1000;
  peer.count(name, calls);
  peer.settle();
  counter.waitForFirstCall();
  std::promise<int> handledBefore;
  bus.post([&] { handledBefore.set_value(counter.handled()); });
  counter.goOn();
  EXPECT_LE(handledBefore.get_future().get(), Bus::messagesPerTurn);
  EXPECT_TRUE(test::eventually([&] { return counter.handled() == calls; }))
      << "waiting messages are handled without a new one";
  bus.stop();
}

TEST(Bus, ABusThatDoesNotAnswerCountsAsAbsentAndIsRetried) {
  const test::PrivateBus daemon;
  ASSERT_TRUE(daemon.isUp());
  daemon.suspend();
  test::ManualClock clock;
  std::atomic<int> absent = 0;
  std::atomic<int> present = 0;
  Bus bus(clock);
  bus.onChange([&](bool connected) { ++(connected ? present : absent); });
  bus.start();
  ASSERT_TRUE(test::eventually([&] { return clock.pendingTimers() == 1; }))
      << "the timer of the handshake";
  clock.advance(Bus::handshakeTimeout);
  EXPECT_TRUE(test::eventually([&] { return absent == 1; }));
  daemon.resume();
  ASSERT_TRUE(test::eventually([&] { return clock.pendingTimers() == 1; }))
      << "the timer of the retry";
  clock.advance(Bus::retryInterval);
  EXPECT_TRUE(test::eventually([&] { return present == 1; }));
  bus.stop();
  EXPECT_EQ(absent, 1);
}

TEST(Bus, ASeparateConnectionHasTheSameDeadline) {
  const test::PrivateBus daemon;
  ASSERT_TRUE(daemon.isUp());
  EXPECT_NE(Bus::openAndWait(), nullptr);
  daemon.suspend();
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(Bus::openAndWait(), nullptr);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, Bus::handshakeTimeout + 2s);
  daemon.resume();
}

TEST(Bus, IsFoundInARuntimeDirectoryOfAnyName) {
  const test::PrivateBus daemon;
  ASSERT_TRUE(daemon.isUp());
  const std::string address = std::getenv("DBUS_SESSION_BUS_ADDRESS");
  const test::TemporaryDirectory directory;
  const auto runtime = directory / "a-b_c.d, e;f=ü%20";
  std::filesystem::create_directory(runtime);
  std::filesystem::create_symlink(address.substr(address.find('/')), runtime + "/bus");
  const test::ScopedVariable without("DBUS_SESSION_BUS_ADDRESS");
  const test::ScopedVariable variable("XDG_RUNTIME_DIR", runtime);
  EXPECT_NE(Bus::openAndWait(), nullptr);
}

TEST(Bus, WorksWhenTheSystemWasShortOfDescriptorsAtItsStart) {
  const test::ScopedVariable address("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent");
  test::ManualClock clock;
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none{.rlim_cur = 0, .rlim_max = before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  Bus bus(clock);
  bus.start();
  std::promise<void> first;
  bus.post([&] { first.set_value(); });
  EXPECT_EQ(first.get_future().wait_for(10s), std::future_status::ready);
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  std::promise<void> second;
  bus.post([&] { second.set_value(); });
  EXPECT_EQ(second.get_future().wait_for(10s), std::future_status::ready);
  bus.stop();
}

}  // namespace
}  // namespace zephyl
