#include "Desktop/Terminal/TerminalDesktop.hpp"

#include <csignal>
#include <cstdio>
#include <utility>

#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Directories.hpp"
#include "System/Files/Environment.hpp"
#include "System/Files/Files.hpp"

namespace zephyl {

namespace {

/// By the locale's name: a terminal's encoding does not depend on what is installed on the machine
/// that it shows.
bool hasUnicode() {
  for (const char* const variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    const auto locale = lowerCased(environmentVariable(variable).value_or(""));
    if (locale.empty()) continue;
    return locale.find("utf-8") != std::string::npos || locale.find("utf8") != std::string::npos;
  }
  return false;
}

bool wantsColors() {
  return environmentVariable("NO_COLOR").value_or("").empty();
}

}  // namespace

TerminalDesktop::TerminalDesktop(const Services& services)
    : services_(services),
      headless_(services.mainLoop, services.clock),
      item_(*this),
      lines_(std::make_shared<LineInbox>(onMain(&TerminalDesktop::takeLines))) {}

Result<std::unique_ptr<TerminalDesktop>> TerminalDesktop::open(const Services& services) {
  std::unique_ptr<TerminalDesktop> desktop(new TerminalDesktop(services));
  if (auto started = desktop->start(); !started) return started.error();
  return desktop;
}

Result<void> TerminalDesktop::start() {
  auto type = TerminalType::load(environmentVariable("TERM").value_or(""), wantsColors());
  if (!type) return type.error();
  const TerminalCapabilities capabilities{.unicode = hasUnicode(), .colors = type->hasColors()};
  auto device = TerminalDevice::open(services_.reactor, *type, deviceListener());
  if (!device) return device.error();
  device_ = *std::move(device);
  screen_ = std::make_shared<TerminalScreen>(
      TerminalScreen::Services{services_.mainLoop, services_.clock, *device_}, *std::move(type),
      capabilities);
  screen_->events = screenEvents();
  captureOutput();
  signals_ = std::make_unique<UnixSignalWatcher>(
      services_.reactor, std::initializer_list<int>{SIGWINCH, SIGCONT, SIGHUP},
      [resized = onMain(&TerminalDesktop::resized), continued = onMain(&TerminalDesktop::continued),
       headless = onMain(&TerminalDesktop::becomeHeadless)](int signal) {
        signal == SIGHUP ? headless() : signal == SIGCONT ? continued() : resized();
      });
  return {};
}

/// A library's own words would ruin the screen as well, so the descriptors are taken; the tray's
/// lines do not take that way, since the thread that reads them must not wait for itself.
void TerminalDesktop::captureOutput() {
  auto capture =
      OutputCapture::start(services_.reactor, [lines = lines_](const OutputLines& output) {
        for (const auto& line : output.lines()) lines->put(line);
      });
  if (capture) capture_ = *std::move(capture);
  const bool onScreenOnly = capture_ && capture_->hasStandardError();
  logSink_ = std::make_unique<LogSink>(
      [lines = lines_](const std::string& line) { lines->put(line); }, onScreenOnly);
}

TerminalDesktop::~TerminalDesktop() {
  signals_.reset();
  logSink_.reset();
  lines_->close();
  takeLines();
  if (!screen_) return;
  const bool onScreenOnly = capture_ && capture_->hasStandardError();
  const auto unseen = screen_->unseenLog();
  screen_.reset();
  device_.reset();
  capture_.reset();
  if (onScreenOnly) printUnseenLog(unseen);
}

/// The end of it: that is where it says why, if anything went wrong.
void TerminalDesktop::printUnseenLog(const std::vector<std::string>& lines) const {
  constexpr std::size_t most = 10;
  for (std::size_t i = lines.size() - std::min(lines.size(), most); i < lines.size(); ++i) {
    std::fprintf(stderr, "%s\n", visible(lines[i]).c_str());
  }
}

TerminalDevice::Listener TerminalDesktop::deviceListener() {
  return {.input =
              [this](SecretString bytes) {
                services_.mainLoop.async([this, bytes = std::move(bytes)] {
                  if (screen_) screen_->receive(bytes);
                });
              },
          .writable = onMain(&TerminalDesktop::resume),
          .closed = onMain(&TerminalDesktop::becomeHeadless)};
}

TerminalScreen::Events TerminalDesktop::screenEvents() {
  return {.notificationActivated =
              [this](const std::string& identifier) {
                if (events_.notificationActivated) events_.notificationActivated(identifier);
              },
          .writeLog = [this](const std::string& text) { writeLog(text); }};
}

void TerminalDesktop::takeLines() {
  auto lines = lines_->take();
  if (screen_) return screen_->appendLog(std::move(lines));
  for (const auto& line : lines) std::fprintf(stderr, "%s\n", visible(line).c_str());
}

void TerminalDesktop::resume() {
  if (!screen_) return;
  device_->resume();
  if (!device_->isBusy()) screen_->drained();
}

void TerminalDesktop::resized() {
  if (screen_) screen_->resized();
}

void TerminalDesktop::continued() {
  if (!screen_) return;
  device_->takeAgain();
  screen_->resized();
}

void TerminalDesktop::becomeHeadless() {
  if (!screen_) return;
  logSink_.reset();
  capture_.reset();
  const auto screen = std::exchange(screen_, nullptr);
  device_.reset();
  log("the terminal is gone: running without a screen");
  item_.showInLog();
  screen->end();
}

void TerminalDesktop::postNotification(const Notification& notification) {
  if (screen_) screen_->post(notification);
}

void TerminalDesktop::removeNotification(const std::string& identifier) {
  if (screen_) screen_->removeNotification(identifier);
}

void TerminalDesktop::activate(const RunningApplication&) {
  if (screen_) screen_->say("Zephyl's window is open already; a terminal cannot bring it up.");
}

/// The user at the terminal may have a browser even if this machine does not.
void TerminalDesktop::openURL(const std::string& url) {
  if (!screen_) return headless_.openURL(url);
  screen_->presentAlert({.messageText = "Open this address in a browser:",
                         .informativeText = url,
                         .buttons = {"Close", "Copy"},
                         .requestedByUser = true},
                        "", [this, url](const std::optional<AlertAnswer>& answer) {
                          if (answer && answer->button == 1 && screen_) screen_->copy(url);
                        });
}

void TerminalDesktop::openFile(const std::string& path, Editor editor) {
  if (!screen_) return headless_.openFile(path, editor);
  screen_->say("Written to " + path);
}

void TerminalDesktop::writeLog(const std::string& text) {
  const auto path =
      joinPath(directories::temporary(),
               formatText("zephyl-tray-log-{}.log", fileTimestamp(services_.clock.calendarNow())));
  const auto written = replaceFile(path, text, Durability::unflushed);
  if (screen_) screen_->say(written ? "Written to " + path : written.error().message);
}

void TerminalDesktop::Item::setIcon(StatusIcon icon) {
  if (desktop_.screen_) desktop_.screen_->setIcon(icon);
}

void TerminalDesktop::Item::setTitle(const std::string& title) {
  if (desktop_.screen_) desktop_.screen_->setTitle(title);
}

void TerminalDesktop::Item::setDescription(const std::string& description) {
  description_ = description;
  if (desktop_.screen_) return desktop_.screen_->setDescription(description);
  showInLog();
}

void TerminalDesktop::Item::setMenu(const Menu& menu) {
  if (desktop_.screen_) desktop_.screen_->setMenu(menu);
}

/// The menu is always on screen, and kept up to date there: it never opens nor closes.
void TerminalDesktop::Item::setMenuEvents(MenuEvents events) {
  if (desktop_.screen_) desktop_.screen_->events.menu = std::move(events);
}

}  // namespace zephyl
