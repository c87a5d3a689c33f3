#pragma once

#include <string>
#include <utility>
#include <vector>

#include "Desktop/Desktop.hpp"

namespace zephyl::test {

/// A desktop that records everything that it should show.
class FakeDesktop final : public Desktop {
 public:
  class Item final : public StatusItem {
   public:
    void setIcon(StatusIcon newIcon) override { icon = newIcon; }
    void setTitle(const std::string& newTitle) override {
      title = newTitle;
      ++titlesSet;
    }
    void setDescription(const std::string& newDescription) override {
      description = newDescription;
      ++descriptionsSet;
    }
    void setMenu(const Menu& newMenu) override {
      menu = newMenu;
      ++menusSet;
    }
    void setMenuEvents(MenuEvents newEvents) override { events = std::move(newEvents); }

    StatusIcon icon = StatusIcon::idle;
    std::string title;
    std::string description;
    Menu menu;
    int menusSet = 0;
    int titlesSet = 0;
    int descriptionsSet = 0;
    MenuEvents events;
  };

  void setEvents(DesktopEvents newEvents) override { events = std::move(newEvents); }
  StatusItem& statusItem() override {
    hasStatusItem = true;
    return item;
  }
  void requestNotificationAuthorization() override { ++authorizationRequests; }
  void postNotification(const Notification& notification) override {
    notifications.push_back(notification);
  }
  void removeNotification(const std::string& identifier) override {
    std::erase_if(notifications, [&](const auto& each) { return each.identifier == identifier; });
  }
  std::vector<RunningApplication> runningApplications(const std::string& identifier) override {
    auto found = applications;
    std::erase_if(found, [&](const auto& each) { return each.identifier != identifier; });
    return found;
  }
  void activate(const RunningApplication& application) override {
    activated.push_back(application);
  }
  void terminate(const RunningApplication& application) override {
    terminated.push_back(application);
  }
  void openURL(const std::string& url) override { openedURLs.push_back(url); }
  void openFile(const std::string& path, Editor editor) override {
    openedFiles.emplace_back(path, editor);
  }
  void chooseFolder(const FolderRequest& request, std::function<void(FolderChoice)> done) override {
    folderRequests.push_back(request);
    folderAnswer = std::move(done);
  }
  std::string consumeActivationToken() override { return std::exchange(activationToken, {}); }

  Item item;
  bool hasStatusItem = false;
  int authorizationRequests = 0;
  DesktopEvents events;
  std::vector<Notification> notifications;  ///< the ones on screen
  std::vector<RunningApplication> applications;
  std::vector<RunningApplication> activated;
  std::vector<RunningApplication> terminated;
  std::vector<std::string> openedURLs;
  std::vector<std::pair<std::string, Editor>> openedFiles;
  std::vector<FolderRequest> folderRequests;
  std::function<void(FolderChoice)> folderAnswer;  ///< of the last request
  std::string activationToken;                     ///< of the action that is being handled
};

}  // namespace zephyl::test
