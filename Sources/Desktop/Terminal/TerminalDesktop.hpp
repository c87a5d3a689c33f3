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

/// A desktop in the terminal that the program was started from, for machines without another. What
/// the program and its children print goes to a log that is part of the screen; what of it the
/// user has not seen in the end is printed then.
///
/// When the terminal is closed, which SIGHUP reports, it is the desktop of a machine that has
/// none from then on: open dialogs end as unanswered.
///
/// Main thread. The main loop runs no more tasks once it is gone.
class TerminalDesktop final : public Desktop {
 public:
  struct Services {
    MainLoop& mainLoop;
    Clock& clock;
    Reactor& reactor;
  };

  /// Takes the terminal over, or says why it cannot be used. The services outlive it.
  static Result<std::unique_ptr<TerminalDesktop>> open(const Services& services);
  ~TerminalDesktop() override;

  /// For the dialogs; it goes when the terminal does.
  [[nodiscard]] std::weak_ptr<TerminalScreen> screen() const { return screen_; }

  void setEvents(DesktopEvents events) override { events_ = std::move(events); }
  StatusItem& statusItem() override { return item_; }
  void requestNotificationAuthorization() override {}  // nobody asks for it here
  void postNotification(const Notification& notification) override;
  void removeNotification(const std::string& identifier) override;
  std::vector<RunningApplication> runningApplications(const std::string&) override { return {}; }
  void activate(const RunningApplication& application) override;
  void terminate(const RunningApplication&) override {}
  void openURL(const std::string& url) override;
  void openFile(const std::string& path, Editor editor) override;
  void chooseFolder(const FolderRequest& request, std::function<void(FolderChoice)> done) override {
    headless_.chooseFolder(request, std::move(done));  // the dialogs can
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
  /// Wraps a member function so that it runs on the main thread, to be called on any.
  Task onMain(void (TerminalDesktop::*member)()) {
    return [this, member] { services_.mainLoop.async([this, member] { (this->*member)(); }); };
  }
  void takeLines();
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
  std::shared_ptr<TerminalScreen> screen_;  // none once there is no terminal any more
  std::unique_ptr<OutputCapture> capture_;
  std::unique_ptr<LogSink> logSink_;
  std::unique_ptr<UnixSignalWatcher> signals_;
};

}  // namespace zephyl
