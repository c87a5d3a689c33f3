#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Helpers/Updates/Client/ProcessUpdater.hpp"
#include "Helpers/Updates/Client/UpdateSchedule.hpp"
#include "Helpers/Updates/Protocol/UpdateFiles.hpp"
#include "Support/FakeDialogs.hpp"
#include "Support/TestRuntime.hpp"
#include "Support/TrayWorld.hpp"
#include "System/Data/JSON.hpp"
#include "System/Files/Bundle.hpp"
#include "System/Files/Files.hpp"
#include "ZephylTray/Config/Config.hpp"

namespace zephyl::test {

/// A stateful fake: records the calls, and returns the answers that the test has set.
class RecordingDelegate final : public UpdateDelegate {
 public:
  void didFindValidUpdate(const UpdateItem& item) override {
    told.push_back("found " + item.displayVersionString);
  }
  void didNotFindUpdate() override { told.emplace_back("none"); }
  bool shouldPostponeRelaunch(const UpdateItem& item, Task go) override {
    told.push_back("ready " + item.versionString);
    proceed = std::move(go);
    return busy;
  }
  void didAbandonRelaunch() override { told.emplace_back("abandoned"); }
  bool supportsGentleScheduledUpdateReminders() override { return true; }
  bool shouldHandleShowingScheduledUpdate(const UpdateItem&, bool inImmediateFocus) override {
    EXPECT_FALSE(inImmediateFocus);
    return inImmediateFocus;
  }
  void willHandleShowingUpdate(bool handled, const UpdateItem&, const UpdateState& state) override {
    told.emplace_back(handled ? "shown" : "reminded");
    if (state.userInitiated) told.back() += " to the user who asked";
  }
  void didReceiveUserAttention(const UpdateItem&) override { told.emplace_back("attention"); }
  void willFinishUpdateSession() override { told.emplace_back("finished"); }

  std::vector<std::string> take() { return std::exchange(told, {}); }

  bool busy = false;
  Task proceed;
  std::vector<std::string> told;
};

using Told = std::vector<std::string>;

class ProcessUpdaterTest : public ::testing::Test {
 protected:
  ProcessUpdaterTest() {
    Bundle::setMain(Bundle(world_.directory().write("zephyl/bin/zephyl-tray", "", true)));
    world_.directory().write("zephyl/share/zephyl-tray/Info.json",
                             R"({"CFBundleShortVersionString": "1.0",
                                 "SUFeedURL": "https://a.example/feed"})");
  }
  ~ProcessUpdaterTest() override { Bundle::setMain(Bundle(std::nullopt)); }
  ProcessUpdaterTest(const ProcessUpdaterTest&) = delete;
  ProcessUpdaterTest& operator=(const ProcessUpdaterTest&) = delete;

  static UpdateSettings settings() { return UpdateSettings(Config::defaults()); }

  void start() {
    controller_ = ProcessUpdater::factory(
        runtime_.runtime(), dialogs_,
        {.program = world_.directory().write("zephyl/libexec/updater", "", true),
         .prefix = prefix_,
         .version = "1.0",
         .arguments = {"--headless"},
         .relaunch = [this] { ++relaunches_; },
         .random = [] { return 0.5; },
         .settings = settings()})(delegate_);
    ASSERT_NE(controller_, nullptr);
  }
  /// Starts a check that the user requested. No scheduled check is due.
  void startAndCheck() {
    settings().setLastCheck(now());
    start();
    controller_->checkForUpdates();
  }
  /// Returns the command of the newest run of the program.
  template <typename Command>
  [[nodiscard]] Command command() const {
    return std::get<Command>(anyCommand());
  }
  template <typename Command>
  [[nodiscard]] bool isCommand() const {
    return std::holds_alternative<Command>(anyCommand());
  }
  [[nodiscard]] UpdateCommand anyCommand() const {
    const auto child = runtime_.launcher.newest();
    return json::decodeText<UpdateCommand>(child->input().at(0)).value();
  }
  [[nodiscard]] std::size_t runs() const { return runtime_.launcher.children().size(); }

  void report(const UpdateReport& report) {
    runtime_.launcher.newest()->print({json::compact(json::encode(report))});
    if (!std::holds_alternative<UpdateProgress>(report)) runtime_.launcher.newest()->exit({});
    runtime_.settle();
  }
  void find(const std::optional<std::string>& obstacle = std::nullopt) {
    report(UpdateFound{.offer = offer_, .feedDate = 500, .obstacle = obstacle});
  }
  void findNothing(std::int64_t feedDate = 500) {
    report(UpToDate{.version = "1.0", .feedDate = feedDate});
  }
  /// Creates the state directory like the updater.
  void makeStateDirectory() const { ASSERT_TRUE(createDirectories(files_.directory, 0700)); }
  [[nodiscard]] std::chrono::sys_seconds now() const {
    return std::chrono::floor<std::chrono::seconds>(runtime_.clock.calendarNow());
  }
  [[nodiscard]] std::string shown() const {
    return dialogs_.alerts().empty() ? "" : dialogs_.alerts().back().heading;
  }
  void press(const std::string& button) {
    dialogs_.press(button);
    runtime_.settle();
  }

  const UpdateOffer offer_{.version = "200",
                           .displayVersion = "2.0",
                           .url = "https://a.example/2",
                           .length = 1'000'000,
                           .releaseNotes = "Calmer."};
  TrayWorld world_;
  const std::string prefix_ = world_.directory() / "zephyl";
  const UpdateFiles files_ = UpdateFiles::of(prefix_);
  TestRuntime runtime_;
  FakeDialogs dialogs_;
  const std::shared_ptr<RecordingDelegate> delegate_ = std::make_shared<RecordingDelegate>();
  int relaunches_ = 0;
  std::unique_ptr<UpdaterController> controller_;
};

}  // namespace zephyl::test
