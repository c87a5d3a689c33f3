#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Desktop/Desktop.hpp"
#include "Desktop/Freedesktop/ActivationTokens.hpp"
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

/// A Linux desktop, used over the session bus on a separate thread. That thread answers the queries
/// of hosts about the item and its menu at once from the published state, even while the main
/// thread is busy. Actions of the user are posted to the main thread.
///
/// While no session bus answers, the desktop shows nothing and logs the state like the headless
/// one. When the bus becomes available again, the item is shown again.
///
/// Main thread only. The main loop must not run tasks after its destruction.
class FreedesktopDesktop final : public Desktop {
 public:
  struct Services {
    MainLoop& mainLoop;
    Clock& clock;
    ProcessLauncher& launcher;
  };

  /// Starts to connect to the bus. The services must outlive it. `activationToken` came with the
  /// start of this program, may be empty, and is available until it is consumed.
  explicit FreedesktopDesktop(const Services& services, std::string activationToken = {});
  ~FreedesktopDesktop() override;

  void setEvents(DesktopEvents events) override { events_ = std::move(events); }
  /// Returns the item, which appears with its first menu.
  StatusItem& statusItem() override { return item_; }
  void requestNotificationAuthorization() override {}  // no permission is required here
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
  std::string consumeActivationToken() override { return tokens_.consume(); }

 private:
  /// The displayed state on the main thread. Forwards changes to the bus thread.
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
    /// Logs the state while there is no bus.
    void showInLog();

   private:
    FreedesktopDesktop& desktop_;
    MenuEvents events_;
    StatusIcon icon_ = StatusIcon::idle;
    std::string title_;
    std::string description_;
    std::shared_ptr<const Menu> menu_;
  };

  FreedesktopDesktop(const Services& services, std::string activationToken,
                     const std::optional<IconLocation>& icons);

  /// Returns a function for the bus thread that calls a member function on the main thread, unless
  /// too many tasks are waiting.
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

  void reopened(const std::string& token);
  void notificationActivated(const std::string& identifier, const std::string& token);
  void itemTokenProvided(const std::string& token) { tokens_.provide(token); }
  void itemActivated() { reopened(tokens_.consumeProvided()); }
  void itemChosen(const MenuAction& action);
  void busChanged(bool connected);
  /// Starts a program that outlives the tray.
  void launch(const std::string& program, const std::string& argument);

  Services services_;
  HeadlessDesktop headless_;
  Item item_;
  DesktopEvents events_;
  bool withoutBus_ = false;  // whether the missing bus was logged
  ActivationTokens tokens_;

  Backlog backlog_;
  Bus bus_;
  BusSignalThrottle throttle_;  // this and the following members belong to the bus thread
  DBusMenu menu_;
  StatusNotifierItem statusNotifier_;
  Notifications notifications_;
  FolderPortal folderPortal_;
  Applications applications_;
  SingleInstance instance_;
};

}  // namespace zephyl
