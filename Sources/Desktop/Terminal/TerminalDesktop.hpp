#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Desktop/Desktop.hpp"
#include "Desktop/Headless/HeadlessDesktop.hpp"
#include "Desktop/Terminal/LineInbox.hpp"
#include "Desktop/Terminal/OutputCapture.hpp"
#include "Desktop/Terminal/TerminalDevice.hpp"
#include "Desktop/Terminal/TerminalScreen.hpp"
#include "System/Concurrency/Reactor.hpp"
#include "System/Concurrency/UnixSignalWatcher.hpp"
#include "System/Files/Log.hpp"

namespace zephyl {

/// A desktop in the terminal from which the program was started. Output of the program and its
/// children goes to a log on the screen. The part of it that the user has not seen is printed at
/// the end.
///
/// When the terminal is closed, which SIGHUP reports, this becomes the desktop of a machine without
/// one, and open dialogs end unanswered.
///
/// Main thread only. The main loop must not run tasks after its destruction.
class TerminalDesktop final : public Desktop {
 public:
  struct Services {
    MainLoop& mainLoop;
    Clock& clock;
    Reactor& reactor;
  };

  /// Opens the terminal, or returns why it cannot be used. The services must outlive it.
  static Result<std::unique_ptr<TerminalDesktop>> open(const Services& services);
  ~TerminalDesktop() override;

  /// Returns the screen for the dialogs. It is destroyed when the terminal is closed.
  [[nodiscard]] std::weak_ptr<TerminalScreen> screen() const { return screen_; }

  void setEvents(DesktopEvents events) override { events_ = std::move(events); }
  StatusItem& statusItem() override { return item_; }
  void requestNotificationAuthorization() override {}  // no permission is required here
  void postNotification(const Notification& notification) override;
  void removeNotification(const std::string& identifier) override;
  std::vector<RunningApplication> runningApplications(const std::string&) override { return {}; }
  void activate(const RunningApplication& application) override;
  void terminate(const RunningApplication&) override {}
  void openURL(const std::string& url) override;
  void openFile(const std::string& path, Editor editor) override;
  void chooseFolder(const FolderRequest& request, std::function<void(FolderChoice)> done) override {
    headless_.chooseFolder(request, std::move(done));  // the tray's dialogs do it
  }

 private:
  class Item final : public StatusItem {
   public:
    explicit Item(TerminalDesktop& desktop) : desktop_(desktop) {}

    void setIcon(StatusIcon icon) override;
    void setTitle(const std::string& title) override;
    void setDescription(const std::string& description) override;
    void setMenu(const Menu& menu) override;
    void setMenuEvents(MenuEvents events) override;
    void showInLog() { desktop_.headless_.statusItem().setDescription(description_); }

   private:
    TerminalDesktop& desktop_;
    std::string description_;
  };

  explicit TerminalDesktop(const Services& services);

  Result<void> start();
  void captureOutput();
  TerminalDevice::Listener deviceListener();
  TerminalScreen::Events screenEvents();
  /// Returns a function, callable from any thread, that runs a member function on the main thread.
  Task onMain(void (TerminalDesktop::*member)()) {
    return [this, member] { services_.mainLoop.async([this, member] { (this->*member)(); }); };
  }
  void drainLines();
  void printUnseenLog(const std::vector<std::string>& lines) const;
  void resume();
  void resized();
  void continued();
  void becomeHeadless();
  void writeLog(const std::string& text);

  Services services_;
  HeadlessDesktop headless_;
  Item item_;
  DesktopEvents events_;
  const std::shared_ptr<LineInbox> lines_;
  std::unique_ptr<TerminalDevice> device_;
  std::shared_ptr<TerminalScreen> screen_;  // null after the terminal was closed
  std::unique_ptr<OutputCapture> capture_;
  std::unique_ptr<LogSink> logSink_;
  std::unique_ptr<UnixSignalWatcher> signals_;
};

}  // namespace zephyl
