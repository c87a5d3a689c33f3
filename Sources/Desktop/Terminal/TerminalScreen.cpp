#include "Desktop/Terminal/TerminalScreen.hpp"

#include <algorithm>
#include <utility>

#include "Desktop/Terminal/Drawing/DisplayText.hpp"
#include "Desktop/Terminal/Views/KeyHelp.hpp"
#include "System/Concurrency/MainLoop.hpp"
#include "System/Concurrency/Weakly.hpp"
#include "System/Data/Text.hpp"

namespace zephyl {

namespace {

/// Returns the menu with texts that the terminal can show.
Menu shownMenu(Menu menu, const TerminalCapabilities& capabilities) {
  for (auto& entry : menu) {
    entry.title = displayText::shown(visible(entry.title), capabilities);
    entry.submenu = shownMenu(std::move(entry.submenu), capabilities);
  }
  return menu;
}

}  // namespace

TerminalScreen::TerminalScreen(const Services& services, TerminalType type,
                               TerminalCapabilities capabilities)
    : services_(services),
      capabilities_(capabilities),
      decoder_(type.keys(), capabilities.unicode),
      painter_(std::move(type)),
      status_(capabilities),
      log_(capabilities) {}

void TerminalScreen::setIcon(StatusIcon icon) {
  if (status_.setIcon(icon)) changed();
}

void TerminalScreen::setTitle(const std::string& title) {
  if (status_.setTitle(title)) changed();
}

void TerminalScreen::setDescription(const std::string& description) {
  if (status_.setDescription(description)) changed();
}

void TerminalScreen::setMenu(const Menu& menu) {
  menu_.setMenu(shownMenu(menu, capabilities_));
  changed();
}

void TerminalScreen::post(const Notification& notification) {
  notices_.post(notification, services_.clock.now());
  changed();
}

void TerminalScreen::removeNotification(const std::string& identifier) {
  notices_.remove(identifier);
  changed();
}

void TerminalScreen::showNotice(const std::string& text) {
  post({.identifier = "zephyl-tray", .body = text});
}

void TerminalScreen::appendLog(std::vector<std::string> lines) {
  log_.append(std::move(lines));
  if (!timers_.log && !ended_) changedAfter(logInterval, timers_.log);
}

void TerminalScreen::copy(const std::string& text) {
  if (painter_.copy(text)) {
    showNotice("Copied, if your terminal allows it.");
  } else {
    showNotice("This terminal has no clipboard; w writes the log to a file.");
  }
}

DialogStack::Number TerminalScreen::presentAlert(const Alert& alert, const std::string& text,
                                                 DialogStack::AlertDone done) {
  const auto number = boxes_.addAlert(alert, capabilities_, text, std::move(done));
  if (alert.style == Alert::Style::critical) painter_.ringBell();
  changed();
  return number;
}

DialogStack::Number TerminalScreen::presentLog(const LogWindow& window,
                                               DialogStack::LogNotify notify) {
  const auto number = boxes_.addLog(window, capabilities_, std::move(notify));
  if (!window.message.empty()) painter_.ringBell();
  changed();
  return number;
}

void TerminalScreen::showProgress(DialogStack::Number dialog, const Progress& progress) {
  if (boxes_.showProgress(dialog, progress)) changed();
}

void TerminalScreen::close(DialogStack::Number dialog) {
  boxes_.close(dialog);
  changed();
}

void TerminalScreen::end() {
  ended_ = true;
  timers_ = {};
  log_.close();
  boxes_.failAll();
}

void TerminalScreen::changed() {
  if (std::exchange(drawingIsDue_, true) || ended_) return;
  services_.mainLoop.async(weakly(this, [](TerminalScreen& self) { self.draw(); }));
}

void TerminalScreen::resized() {
  painter_.forget();
  changed();
}

void TerminalScreen::draw() {
  if (ended_ || services_.output.isBusy()) return;
  drawingIsDue_ = false;
  timers_.log.cancel();
  const Instant now = services_.clock.now();
  notices_.expire(now);
  const Duration untilAnswer = guard_.drawn(boxes_, now);
  const bool mayAnswer = untilAnswer == Duration::zero();
  Canvas canvas(services_.output.size(), capabilities_);
  drawMenuScreen(canvas);
  if (log_.isOpen()) log_.draw(canvas);
  boxes_.draw(canvas, mayAnswer);
  if ((log_.isOpen() || boxes_.hasLog()) && !boxes_.hasAlert()) notices_.drawOverLog(canvas, now);
  const SecretString painted = painter_.paint(canvas);
  if (!painted.empty()) services_.output.write(painted);
  scheduleFading();
  if (mayAnswer) return timers_.opening.cancel();
  changedAfter(untilAnswer, timers_.opening);
}

void TerminalScreen::scheduleFading() {
  const Instant now = services_.clock.now();
  const auto next = notices_.nextChange(now);
  if (!next) return timers_.fading.cancel();
  changedAfter(*next - now, timers_.fading);
}

void TerminalScreen::changedAfter(Duration delay, Timer& timer) {
  timer = services_.mainLoop.after(services_.clock, delay, [this] { changed(); });
}

void TerminalScreen::drawMenuScreen(Canvas& canvas) {
  const auto [height, columns] = canvas.size();
  const bool roomy = height >= 12;
  const int top = roomy ? 4 : 1;
  status_.draw(canvas, roomy);
  menu_.draw(canvas, {top, 0, std::max(height - top - (roomy ? 3 : 1), 1), columns});
  const Instant now = services_.clock.now();
  if (roomy) notices_.draw(canvas, {height - 2, 1, 1, columns - 2}, now);
  if (!roomy && notices_.shown() != nullptr) {
    return notices_.draw(canvas, {height - 1, 1, 1, columns - 2}, now);
  }
  keyHelp::draw(canvas, {height - 1, 1, 1, columns - 2}, log_.unseenCount());
}

void TerminalScreen::receive(std::string_view bytes) {
  timers_.restOfKey.cancel();
  for (const auto& key : decoder_.decode(bytes)) handle(key);
  if (!decoder_.isWaiting()) return;
  timers_.restOfKey = services_.mainLoop.after(services_.clock, keyDelay, [this] {
    timers_.restOfKey.cancel();
    for (const auto& key : decoder_.flush()) handle(key);
  });
}

void TerminalScreen::handle(const Key& key) {
  if (ended_) return;
  changed();
  if (key.kind == Key::Kind::focusIn)
    return guard_.terminalActivated(boxes_, services_.clock.now());
  if (key.kind == Key::Kind::control && key.text == "l") return painter_.forget();
  if (boxes_.top()) return handleInDialog(key);
  if (log_.isOpen()) return handleInLog(key);
  handleInMenu(key);
}

void TerminalScreen::handleInDialog(const Key& key) {
  const auto permission = guard_.keyPressed(boxes_, services_.clock.now());
  if (permission == AnswerGuard::Permission::ignore) return;
  boxes_.handle(key, permission == AnswerGuard::Permission::answer,
                [this](const std::string& text) { copy(text); });
}

void TerminalScreen::handleInMenu(const Key& key) {
  if (key.is("?")) {
    presentAlert(keyHelp::alert(capabilities_), "", [](const auto&) {});
    return;
  }
  if (key.is("l")) return log_.open();
  if (key.is("n")) return activateNotification();
  const auto outcome = menu_.handle(key);
  if (outcome.opened && events.menu.needsUpdate) events.menu.needsUpdate();
  if (outcome.chosen && events.menu.chosen) events.menu.chosen(*outcome.chosen);
}

void TerminalScreen::handleInLog(const Key& key) {
  switch (log_.handle(key)) {
    case LogBox::Outcome::copy:
      return copy(log_.text());
    case LogBox::Outcome::write:
      if (events.writeLog) events.writeLog(log_.text() + "\n");
      return;
    default:
      return;
  }
}

void TerminalScreen::activateNotification() {
  const auto* const shown = notices_.shown();
  if (shown == nullptr || shown->actionTitle.empty()) return;
  const std::string identifier = shown->identifier;
  notices_.remove(identifier);
  if (events.notificationActivated) events.notificationActivated(identifier);
}

}  // namespace zephyl
