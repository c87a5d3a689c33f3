#pragma once

#include "Desktop/Desktop.hpp"
#include "System/Concurrency/Clock.hpp"
#include "System/Concurrency/MainLoop.hpp"

namespace zephyl {

/// The desktop of a machine without one. Nothing is shown. Each change of the state is logged in
/// words. If changes follow each other within `logInterval`, only the last is logged. No question
/// is answered, no menu is opened, and no application is known.
class HeadlessDesktop final : public Desktop {
 public:
  static constexpr Duration logInterval = std::chrono::milliseconds(250);

  /// `mainLoop` and `clock` must outlive it.
  HeadlessDesktop(MainLoop& mainLoop, Clock& clock) : item_(mainLoop, clock) {}

  void setEvents(DesktopEvents) override {}
  StatusItem& statusItem() override { return item_; }
  void requestNotificationAuthorization() override {}
  void postNotification(const Notification&) override {}
  void removeNotification(const std::string&) override {}
  std::vector<RunningApplication> runningApplications(const std::string&) override { return {}; }
  void activate(const RunningApplication&) override {}
  void terminate(const RunningApplication&) override {}
  void openURL(const std::string& url) override;
  void openFile(const std::string& path, Editor editor) override;
  void chooseFolder(const FolderRequest& request, std::function<void(FolderChoice)> done) override;

 private:
  class Item final : public StatusItem {
   public:
    Item(MainLoop& mainLoop, Clock& clock) : mainLoop_(mainLoop), clock_(clock) {}

    void setIcon(StatusIcon) override {}
    void setTitle(const std::string&) override {}
    void setDescription(const std::string& description) override;
    void setMenu(const Menu&) override {}
    void setMenuEvents(MenuEvents) override {}

   private:
    void logIfChanged();

    MainLoop& mainLoop_;
    Clock& clock_;
    std::string current_;
    std::string logged_;
    Instant lastLine_{};
    Timer delayedLine_;
  };

  Item item_;
};

}  // namespace zephyl
