#pragma once

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Desktop/Freedesktop/FreedesktopDesktop.hpp"
#include "PanelProgram.hpp"
#include "Support/FakeLauncher.hpp"
#include "Support/ManualClock.hpp"
#include "Support/PrivateBus.hpp"

namespace zephyl::test {

/// A desktop whose item is registered with a panel on a private bus. The test's thread is the main
/// thread and the panel.
class FreedesktopDesktopTest : public ::testing::Test {
 protected:
  static MenuEntry item(const std::string& key, const std::string& title) {
    return {.key = key, .title = title, .action = MenuAction(key)};
  }

  void SetUp() override {
    ASSERT_TRUE(daemon_.isUp());
    panel_ = std::make_unique<PanelProgram>();
    panel_->own(PanelProgram::watcher);
    panel_->own(PanelProgram::notificationServer);
    desktop_ = std::make_unique<FreedesktopDesktop>(
        FreedesktopDesktop::Services{mainLoop_, clock_, launcher_});
    desktop_->setEvents(
        {.reopened = [this] { ++reopened_; },
         .notificationActivated = [this](const auto& id) { activated_.push_back(id); }});
    shown().setMenuEvents(
        {.needsUpdate = [this] { events_.emplace_back("needsUpdate"); },
         .willOpen = [this] { events_.emplace_back("willOpen"); },
         .didClose = [this] { events_.emplace_back("didClose"); },
         .chosen =
             [this](const MenuAction& action) { events_.push_back(*action.as<std::string>()); }});
    shown().setMenu(menu_);
    ASSERT_TRUE(runUntil([this] { return !panel_->registered().empty(); }));
  }

  StatusItem& shown() { return desktop_->statusItem(); }

  /// Runs the main thread and the panel until `condition` holds.
  bool runUntil(const std::function<bool()>& condition) {
    return panel_->runUntil([&] {
      mainLoop_.runPending();
      return condition();
    });
  }
  /// Returns when everything that the panel has sent so far has had its effect.
  void settle() {
    panel_->itemText("Id");
    mainLoop_.runPending();
  }

  PrivateBus daemon_;
  ManualClock clock_;
  MainLoop mainLoop_;
  FakeLauncher launcher_;
  Menu menu_{item("open", "Open Zephyl"),
             {.key = "line", .kind = MenuEntry::Kind::separator},
             {.key = "state", .title = "Reachable", .enabled = false},
             {.key = "servers", .title = "Servers", .submenu = {item("hill", "Patient Hill")}}};
  int reopened_ = 0;
  std::vector<std::string> activated_;
  std::vector<std::string> events_;
  std::unique_ptr<PanelProgram> panel_;
  std::unique_ptr<FreedesktopDesktop> desktop_;
};

}  // namespace zephyl::test
