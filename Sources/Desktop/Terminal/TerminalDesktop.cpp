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

/// Decided by the locale's name, because the encoding of a terminal does not depend on the locales
/// that are installed on this machine.
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
      lines_(std::make_shared<LineInbox>(onMain(&TerminalDesktop::drainLines))) {}

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

/// Redirects the descriptors, because output of a library would damage the screen, too. The tray's
/// own lines do not use the pipe, because the thread that reads it must not wait for itself.
void TerminalDesktop::captureOutput() {
  auto capture =
      OutputCapture::start(services_.reactor, [lines = lines_](const OutputLines& output) {
        for (const auto& line : output.lines()) lines->add(line);
      });
  if (capture) capture_ = *std::move(capture);
  const bool onScreenOnly = capture_ && capture_->hasStandardError();
  logSink_ = std::make_unique<LogSink>(
      [lines = lines_](const std::string& line) { lines->add(line); }, onScreenOnly);
}

TerminalDesktop::~TerminalDesktop() {
  signals_.reset();
  logSink_.reset();
  lines_->close();
  drainLines();
  if (!screen_) return;
  const bool onScreenOnly = capture_ && capture_->hasStandardError();
  const auto unseen = screen_->unseenLog();
  screen_.reset();
  device_.reset();
  capture_.reset();
  if (onScreenOnly) printUnseenLog(unseen);
}

/// Prints the last lines, which show the reason if an error has occurred.
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

void TerminalDesktop::drainLines() {
  auto lines = lines_->drain();
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
  device_->reacquire();
  screen_->resized();
}

void TerminalDesktop::becomeHeadless() {
  if (!screen_) return;
  logSink_.reset();
  capture_.reset();
  const auto screen = std::exchange(screen_, nullptr);
  device_.reset();
  log("the terminal was closed: running without a screen");
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
  if (screen_)
    screen_->showNotice(
        "Zephyl's window is already open. A terminal cannot bring it to the front.");
}

/// The user at the terminal may have a browser even if this machine has none.
void TerminalDesktop::openURL(const std::string& url) {
  if (!screen_) return headless_.openURL(url);
  screen_->presentAlert({.heading = "Open this address in a browser:",
                         .explanation = url,
                         .buttons = {"Close", "Copy"},
                         .requestedByUser = true},
                        "", [this, url](const std::optional<AlertAnswer>& answer) {
                          if (answer && answer->button == 1 && screen_) screen_->copy(url);
                        });
}

void TerminalDesktop::openFile(const std::string& path, Editor editor) {
  if (!screen_) return headless_.openFile(path, editor);
  screen_->showNotice("Written to " + path);
}

void TerminalDesktop::writeLog(const std::string& text) {
  const auto path =
      joinPath(directories::temporary(),
               formatText("zephyl-tray-log-{}.log", fileTimestamp(services_.clock.calendarNow())));
  const auto written = replaceFile(path, text, Durability::unflushed);
  if (screen_) screen_->showNotice(written ? "Written to " + path : written.error().message);
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

/// The menu is always on screen and updated there, so it never opens or closes.
void TerminalDesktop::Item::setMenuEvents(MenuEvents events) {
  if (desktop_.screen_) desktop_.screen_->events.menu = std::move(events);
}

}  // namespace zephyl
