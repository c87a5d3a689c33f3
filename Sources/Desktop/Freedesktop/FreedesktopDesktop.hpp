#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Desktop/Desktop.hpp"
#include "Desktop/Freedesktop/Applications.hpp"
#include "Desktop/Freedesktop/Backlog.hpp"
#include "Desktop/Freedesktop/Bus/Bus.hpp"
#include "Desktop/Freedesktop/FolderPortal.hpp"
#include "Desktop/Freedesktop/Menu/BusSignalThrottle.hpp"
#include "Desktop/Freedesktop/Menu/DBusMenu.hpp"
#include "Desktop/Freedesktop/Notifications.hpp"
#include "Desktop/Freedesktop/SingleInstance.hpp"
#include "Desktop/Freedesktop/StatusNotifierItem.hpp"
#include "Desktop/Headless/HeadlessDesktop.hpp"
#include "System/Concurrency/Clock.hpp"
#include "System/Concurrency/MainLoop.hpp"
#include "System/Processes/ChildProcess.hpp"

namespace zephyl {

/// A Linux desktop, spoken to over the session bus on a thread of its own. What a host asks about
/// the item and its menu is answered there at once, from what was published last, also while the
/// main thread is busy; what the user does goes to the main thread.
///
/// As long as no session bus answers it is a desktop without anything on it: the state goes to the
/// log, as on a machine that has none. When the bus comes, or comes back, so does the item.
///
/// Main thread. The main loop runs no more tasks once it is gone.
class FreedesktopDesktop final : public Desktop {
 public:
  struct Services {
    MainLoop& mainLoop;
    Clock& clock;
    ProcessLauncher& launcher;
  };

  /// Begins to look for the bus. The services outlive it.
  explicit FreedesktopDesktop(const Services& services);
  ~FreedesktopDesktop() override;

  void setEvents(DesktopEvents events) override { events_ = std::move(events); }
  /// The item appears with its first menu.
  StatusItem& statusItem() override { return item_; }
  void requestNotificationAuthorization() override {}  // nobody asks for it here
  void postNotification(const Notification& notification) override;
  void removeNotification(const std::string& identifier) override;
  std::vector<RunningApplication> runningApplications(const std::string& identifier) override {
    return applications_.running(identifier);
  }
  void activate(const RunningApplication& application) override;
  void terminate(const RunningApplication& application) override {
    applications_.terminate(application);
  }
  void openURL(const std::string& url) override;
  void openFile(const std::string& path, Editor editor) override;
  void chooseFolder(const FolderRequest& request, std::function<void(FolderChoice)> done) override;

  /// What lets the next window come to the front, for the program that shows it; empty when there
  /// is nothing.
  std::string takeActivationToken() { return std::exchange(activationToken_, {}); }

 private:
  /// What is shown, on the main thread: passes on what differs.
  class Item final : public StatusItem {
   public:
    explicit Item(FreedesktopDesktop& desktop) : desktop_(desktop) {}

    void setIcon(StatusIcon icon) override;
    void setTitle(const std::string& title) override;
    void setDescription(const std::string& description) override;
    void setMenu(const Menu& menu) override;
    void setMenuEvents(MenuEvents events) override { events_ = std::move(events); }

    void notify(MenuSession::Event event, unsigned opening);
    void choose(const MenuAction& action);
    /// As long as there is no bus.
    void showInLog();

   private:
    FreedesktopDesktop& desktop_;
    MenuEvents events_;
    StatusIcon icon_ = StatusIcon::idle;
    std::string title_;
    std::string description_;
    std::shared_ptr<const Menu> menu_;
  };

  FreedesktopDesktop(const Services& services, const std::optional<IconLocation>& icons);

  /// Lets the bus thread call a member function on the main thread, unless that is too far behind.
  template <typename... Values>
  auto onMain(void (FreedesktopDesktop::*member)(Values...)) {
    return [this, member](const auto&... values) {
      backlog_.offer([this, member, values...] { (this->*member)(values...); });
    };
  }

  DBusMenu::Listener menuListener();
  StatusNotifierItem::Listener itemListener();
  Notifications::Listener notificationListener();
  SingleInstance::Listener instanceListener();

  void reopened();
  void notificationActivated(const std::string& identifier);
  void keepToken(const std::string& token) { activationToken_ = token; }
  void busChanged(bool connected);
  /// Starts a program that outlives the tray.
  void launch(const std::string& program, const std::string& argument);

  Services services_;
  HeadlessDesktop headless_;
  Item item_;
  DesktopEvents events_;
  bool withoutBus_ = false;      // and that was said
  std::string activationToken_;  // the newest that nobody has used

  Backlog backlog_;
  Bus bus_;
  BusSignalThrottle pacer_;  // and what follows: the bus thread's
  DBusMenu menu_;
  StatusNotifierItem statusNotifier_;
  Notifications notifications_;
  FolderPortal folderPortal_;
  Applications applications_;
  SingleInstance instance_;
};

}  // namespace zephyl
