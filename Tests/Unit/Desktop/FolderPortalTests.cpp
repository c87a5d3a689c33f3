#include "Desktop/Freedesktop/FolderPortal.hpp"

#include <future>
#include <mutex>

#include <gtest/gtest.h>

#include "Support/Eventually.hpp"
#include "Support/ManualClock.hpp"
#include "Support/PrivateBus.hpp"

namespace zephyl {
namespace {

using namespace std::chrono_literals;

constexpr const char* requestPath = "/org/freedesktop/portal/desktop/request/test/1";

/// A portal that accepts a request when the test tells it to, and records closed requests.
class SlowPortal final : public Bus::Client {
 public:
  void connected(BusConnection& connection) override {
    static const sd_bus_vtable chooser[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_METHOD("OpenFile", "ssa{sv}", "o", (answerCall<&SlowPortal::open, SlowPortal>), 0),
        SD_BUS_PROPERTY("version", "u", (answerProperty<&SlowPortal::version, SlowPortal>), 0, 0),
        SD_BUS_VTABLE_END,
    };
    static const sd_bus_vtable request[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_METHOD("Close", "", "", (answerCall<&SlowPortal::close, SlowPortal>), 0),
        SD_BUS_VTABLE_END,
    };
    objects_.push_back(connection.addObject("/org/freedesktop/portal/desktop",
                                            "org.freedesktop.portal.FileChooser", chooser, this));
    objects_.push_back(
        connection.addObject(requestPath, "org.freedesktop.portal.Request", request, this));
    sd_bus_request_name(&connection.raw(), "org.freedesktop.portal.Desktop", 0);
    ready_.set_value();
  }
  void disconnected() override {
    objects_.clear();
    question_.reset();
  }

  void waitUntilReady() { ready_.get_future().wait(); }
  [[nodiscard]] bool wasAsked() const { return asked_; }
  [[nodiscard]] bool wasClosed() const { return closed_; }
  /// On the portal's bus thread.
  void accept() { sd_bus_reply_method_return(question_.get(), "o", requestPath); }

 private:
  int open(sd_bus_message& call) {
    question_.reset(sd_bus_message_ref(&call));
    asked_ = true;
    return 1;
  }
  int close(sd_bus_message& call) {
    closed_ = true;
    return sd_bus_reply_method_return(&call, "");
  }
  int version(const std::string&, BusWriter& writer) { return writer.append("u", 3U).status(); }

  std::vector<BusSlot> objects_;
  BusMessage question_;
  std::promise<void> ready_;
  std::atomic<bool> asked_ = false;
  std::atomic<bool> closed_ = false;
};

class FolderPortalTest : public ::testing::Test {
 protected:
  FolderPortalTest() {
    portalBus_.add(portal_);
    portalBus_.start();
    portal_.waitUntilReady();
    bus_.add(folders_);
    bus_.onChange([this](bool) { connected_ = true; });
    bus_.start();
  }
  ~FolderPortalTest() override {
    bus_.stop();
    portalBus_.stop();
  }
  FolderPortalTest(const FolderPortalTest&) = delete;
  FolderPortalTest& operator=(const FolderPortalTest&) = delete;

  /// Requests a folder. `choices()` returns the answers.
  void ask() {
    ASSERT_TRUE(test::eventually([&] { return connected_.load(); }));
    bus_.post([this] {
      folders_.choose({"Share", "Choose a folder"}, [this](FolderChoice choice) {
        const std::scoped_lock lock(mutex_);
        choices_.push_back(std::move(choice));
      });
    });
    ASSERT_TRUE(test::eventually([&] { return portal_.wasAsked(); }));
    // The bus thread sets the timer after it has sent the request.
    ASSERT_TRUE(test::eventually([&] { return clock_.pendingTimers() >= 1; }));
  }
  std::vector<FolderChoice> choices() {
    const std::scoped_lock lock(mutex_);
    return choices_;
  }
  /// Waits until all posted tasks have run.
  void settle() {
    std::promise<void> done;
    bus_.post([&] { done.set_value(); });
    done.get_future().wait();
  }

  test::PrivateBus daemon_;
  test::ManualClock clock_, portalClock_;
  SlowPortal portal_;
  Bus portalBus_{portalClock_};
  Bus bus_{clock_};
  FolderPortal folders_{bus_};
  std::atomic<bool> connected_ = false;
  std::mutex mutex_;
  std::vector<FolderChoice> choices_;
};

TEST_F(FolderPortalTest, APortalThatIsStillStartingIsWaitedFor) {
  ask();
  clock_.advance(FolderPortal::startTimeout - 1s);
  settle();
  EXPECT_TRUE(choices().empty());
  portalBus_.post([this] { portal_.accept(); });
  ASSERT_TRUE(test::eventually([&] { return clock_.pendingTimers() == 0; })) << "it is accepted";
  clock_.advance(1h);
  settle();
  EXPECT_TRUE(choices().empty()) << "there is no limit for the user";
  EXPECT_FALSE(portal_.wasClosed());
}

TEST_F(FolderPortalTest, ARequestThatIsAcceptedTooLateIsClosed) {
  ask();
  clock_.advance(FolderPortal::startTimeout);
  ASSERT_TRUE(test::eventually([&] { return choices().size() == 1; }));
  EXPECT_FALSE(choices()[0].answered);
  EXPECT_EQ(choices()[0].answer.error().message, "The folder chooser does not answer.");
  EXPECT_FALSE(portal_.wasClosed()) << "there is nothing to close yet";
  portalBus_.post([this] { portal_.accept(); });
  EXPECT_TRUE(test::eventually([&] { return portal_.wasClosed(); }));
  EXPECT_EQ(choices().size(), 1U);
}

TEST_F(FolderPortalTest, ARequestWithoutABusFails) {
  ask();
  bus_.stop();
  ASSERT_EQ(choices().size(), 1U);
  EXPECT_FALSE(choices()[0].answered);
  folders_.choose({"Share", "Choose a folder"},
                  [this](FolderChoice choice) { choices_.push_back(std::move(choice)); });
  EXPECT_EQ(choices().size(), 2U);
}

TEST(FolderPortal, ARequestThatCannotBeSentFails) {
  test::ManualClock clock;
  Bus bus(clock);
  sd_bus* raw = nullptr;
  ASSERT_GE(sd_bus_new(&raw), 0);
  const std::unique_ptr<sd_bus, BusRelease> unconnected(raw);
  BusConnection connection(*raw);
  FolderPortal portal(bus);
  portal.connected(connection);
  std::vector<FolderChoice> choices;
  portal.choose({"Share", "Choose a folder"},
                [&](FolderChoice choice) { choices.push_back(std::move(choice)); });
  ASSERT_EQ(choices.size(), 1U);
  EXPECT_FALSE(choices[0].answered);
  portal.disconnected();
}

}  // namespace
}  // namespace zephyl
