#pragma once

#include <string>
#include <vector>

#include "Desktop/Desktop.hpp"

namespace zephyl::test {

/// A desktop that remembers what it was told to show.
class FakeDesktop final : public Desktop {
 public:
  class Item final : public StatusItem {
   public:
    void setIcon(StatusIcon newIcon) override { icon = newIcon; }
    void setTitle(const std::string& newTitle) override { title = newTitle; }
    void setDescription(const std::string& newDescription) override {
      description = newDescription;
    }

    StatusIcon icon = StatusIcon::idle;
    std::string title;
    std::string description;
  };

  StatusItem& statusItem() override {
    hasStatusItem = true;
    return item;
  }
  void requestNotificationAuthorization() override { ++authorizationRequests; }
  void presentLogWindow(const LogWindow& window) override { logWindows.push_back(window); }

  Item item;
  bool hasStatusItem = false;
  int authorizationRequests = 0;
  std::vector<LogWindow> logWindows;
};

}  // namespace zephyl::test
