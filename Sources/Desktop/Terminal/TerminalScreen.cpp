#include "Desktop/Terminal/TerminalScreen.hpp"

#include <algorithm>
#include <utility>

#include "Desktop/Terminal/Drawing/DisplayText.hpp"
#include "System/Concurrency/MainLoop.hpp"
#include "System/Concurrency/Weakly.hpp"
#include "System/Data/Format.hpp"
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

constexpr std::string_view helpText =
    "Arrows, PgUp, Home …     move\n"
    "Enter                    choose; open or close a submenu\n"
    "Right, Left              open, close a submenu\n"
    "Ctrl-O, Ctrl-Q           the entry with this shortcut\n"
    "n                        the action of a notification\n"
    "l                        show the log\n"
    "Ctrl-L                   redraw the screen\n"
    "Ctrl-C                   end the tray\n"
    "\n"
    "In a dialog, Tab moves between buttons, Enter presses the marked button, and Escape is the "
    "safe "
    "answer. In a log, c copies and w writes to a file.\n"
    "\n"
    "To select text with the mouse, hold Shift. Closing the terminal does not end the tray.";

}  // namespace

TerminalScreen::TerminalScreen(const Services& services, TerminalType type,
                               TerminalCapabilities capabilities)
    : services_(services),
      type_(std::move(type)),
      capabilities_(capabilities),
      painter_(type_),
      decoder_(type_.keys(), capabilities.unicode) {}

void TerminalScreen::setIcon(StatusIcon icon) {
  if (std::exchange(icon_, icon) != icon) changed();
}

void TerminalScreen::setTitle(const std::string& title) {
  if (title == title_) return;
  title_ = title;
  changed();
}

void TerminalScreen::setDescription(const std::string& description) {
  if (description == description_) return;
  description_ = description;
  changed();
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
  unseenLines_ += lines.size();
  for (auto& line : lines) log_.append(std::move(line));
  if (logBox_) showLogLines();
  if (!logTimer_ && !ended_) changedAfter(logInterval, logTimer_);
}

std::vector<std::string> TerminalScreen::unseenLog() const {
  auto lines = log_.lines();
  const auto seen = lines.size() - std::min(lines.size(), unseenLines_);
  lines.erase(lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(seen));
  return lines;
}

void TerminalScreen::copy(const std::string& text) {
  if (auto bytes = type_.copy(text)) {
    unsent_ += *bytes;
    showNotice("Copied, if your terminal allows it.");
  } else {
    showNotice("This terminal has no clipboard; w writes the log to a file.");
  }
}

DialogStack::Number TerminalScreen::presentAlert(const Alert& alert, const std::string& text,
                                                 DialogStack::AlertDone done) {
  const auto number = boxes_.addAlert(alert, capabilities_, text, std::move(done));
  if (alert.style == Alert::Style::critical) unsent_ += type_.bell();
  changed();
  return number;
}

DialogStack::Number TerminalScreen::presentLog(const LogWindow& window,
                                               DialogStack::LogNotify notify) {
  const auto number = boxes_.addLog(window, capabilities_, std::move(notify));
  if (!window.message.empty()) unsent_ += type_.bell();
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
  keyTimer_.cancel();
  fadingTimer_.cancel();
  logTimer_.cancel();
  guardTimer_.cancel();
  logBox_.reset();
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

void TerminalScreen::topWasDrawn() {
  if (std::exchange(drawnTop_, boxes_.top()) != boxes_.top()) {
    topSince_ = services_.clock.now();
    const bool unrequested = drawnTop_ && !boxes_.topIsRequestedByUser();
    topGuard_ = unrequested ? TopGuard::closed : TopGuard::none;
    guard_.restart(topSince_);
  }
  const Instant now = services_.clock.now();
  // The program was held up. Keys from that time are still on their way to it.
  if (topGuard_ == TopGuard::closed && guard_.remaining(now) < -InputGuard::maxLateness)
    guard_.postpone(now);
  const Instant opening = drawnTop_ ? topMayBeAnsweredAt(now) : now;
  if (now < opening) return changedAfter(opening - now, guardTimer_);
  if (topGuard_ == TopGuard::closed) topGuard_ = TopGuard::open;
  guardTimer_.cancel();
}

Instant TerminalScreen::topMayBeAnsweredAt(Instant now) const {
  if (topGuard_ == TopGuard::none) return topSince_ + answerDelay;
  return now + guard_.remaining(now);
}

void TerminalScreen::draw() {
  if (ended_ || services_.output.isBusy()) return;
  drawingIsDue_ = false;
  logTimer_.cancel();
  topWasDrawn();
  notices_.expire(services_.clock.now());
  Canvas canvas(services_.output.size(), capabilities_);
  drawMenuScreen(canvas);
  if (logBox_) {
    canvas.clear(canvas.area());
    logBox_->draw(canvas, canvas.area());
  }
  boxes_.draw(canvas, /*mayAnswer=*/!guardTimer_);
  if ((logBox_ || boxes_.hasLog()) && !boxes_.hasAlert()) drawNoticeOverLog(canvas);
  if (!unsent_.empty()) services_.output.write(std::exchange(unsent_, {}));
  const SecretString painted = painter_.paint(canvas);
  if (!painted.empty()) services_.output.write(painted);
  scheduleFading();
}

void TerminalScreen::scheduleFading() {
  const Instant now = services_.clock.now();
  const auto next = notices_.nextChange(now);
  if (!next) return fadingTimer_.cancel();
  changedAfter(*next - now, fadingTimer_);
}

void TerminalScreen::changedAfter(Duration delay, Timer& timer) {
  timer = services_.mainLoop.after(services_.clock, delay, [this] { changed(); });
}

void TerminalScreen::drawStatus(Canvas& canvas, int rows) const {
  const auto [height, columns] = canvas.size();
  canvas.clear({0, 0, 1, columns}, {.reverse = true});
  const int column = canvas.put(0, 1, "Zephyl", {.bold = true, .reverse = true});
  const auto* const icon = icon_ == StatusIcon::busy ? "busy" : "idle";
  canvas.put(0, column, formatText("{}  {}", visible(title_), icon), {.reverse = true});
  if (rows < 2) return;
  auto lines =
      displayText::wrapped(displayText::shown(visible(description_), capabilities_), columns - 2);
  if (lines.size() > 2)
    lines[1] = displayText::cut(lines[1] + " " + lines[2], columns - 2, capabilities_);
  for (int i = 0; i < std::min<int>(2, static_cast<int>(lines.size())); ++i) {
    canvas.put(1 + i, 1, lines[static_cast<std::size_t>(i)]);
  }
}

void TerminalScreen::drawMenuScreen(Canvas& canvas) {
  const auto [height, columns] = canvas.size();
  const bool roomy = height >= 12;
  const int top = roomy ? 4 : 1;
  drawStatus(canvas, roomy ? 2 : 1);
  menu_.draw(canvas, {top, 0, std::max(height - top - (roomy ? 3 : 1), 1), columns});
  const Instant now = services_.clock.now();
  if (roomy) notices_.draw(canvas, {height - 2, 1, 1, columns - 2}, now);
  if (!roomy && notices_.shown() != nullptr) {
    return notices_.draw(canvas, {height - 1, 1, 1, columns - 2}, now);
  }
  canvas.put(height - 1, 1, displayText::cut(hints(columns - 2), columns - 2, capabilities_),
             {.dim = true});
}

void TerminalScreen::drawNoticeOverLog(Canvas& canvas) const {
  const auto [height, columns] = canvas.size();
  if (notices_.shown() == nullptr || height < 4) return;
  canvas.clear({height - 2, 0, 1, columns});
  notices_.draw(canvas, {height - 2, 1, 1, columns - 2}, services_.clock.now());
}

std::string TerminalScreen::hints(int columns) const {
  const std::string news = unseenLines_ > 0 ? formatText(" ({} new)", unseenLines_) : "";
  auto all = displayText::shown(
      formatText("↑↓ move  Enter choose  l log{}  ? help  Ctrl-C quit", news), capabilities_);
  if (displayText::width(all) <= columns) return all;
  return formatText("? help  l log{}", news);
}

void TerminalScreen::receive(std::string_view bytes) {
  keyTimer_.cancel();
  for (const auto& key : decoder_.decode(bytes)) handle(key);
  if (decoder_.isWaiting()) waitForRestOfKey();
}

void TerminalScreen::waitForRestOfKey() {
  keyTimer_ = services_.mainLoop.after(services_.clock, keyDelay, [this] {
    keyTimer_.cancel();
    for (const auto& key : decoder_.flush()) handle(key);
  });
}

void TerminalScreen::handle(const Key& key) {
  if (ended_) return;
  changed();
  if (key.kind == Key::Kind::focusIn) return guardTopAgain();
  if (key.kind == Key::Kind::control && key.text == "l") return painter_.forget();
  if (boxes_.top()) return handleInDialog(key);
  if (logBox_) return handleInLog(key);
  handleInMenu(key);
}

void TerminalScreen::guardTopAgain() {
  if (!drawnTop_ || drawnTop_ != boxes_.top()) return;
  if (topGuard_ != TopGuard::none || boxes_.topPermitsSomething()) topGuard_ = TopGuard::closed;
  guard_.restart(services_.clock.now());
}

/// A key that is pressed before the dialog is on screen was not meant for it.
void TerminalScreen::handleInDialog(const Key& key) {
  if (drawnTop_ != boxes_.top()) return;
  const Instant now = services_.clock.now();
  if (topGuard_ == TopGuard::closed) return guard_.postpone(now);
  const bool mayAnswer = now >= topMayBeAnsweredAt(now);
  boxes_.handle(key, mayAnswer, [this](const std::string& text) { copy(text); });
}

void TerminalScreen::handleInMenu(const Key& key) {
  if (key.is("?")) return openHelp();
  if (key.is("l")) return openLog();
  if (key.is("n")) return activateNotification();
  run(menu_.handle(key));
}

void TerminalScreen::run(const MenuView::Outcome& outcome) {
  if (outcome.opened && events.menu.needsUpdate) events.menu.needsUpdate();
  if (outcome.chosen && events.menu.chosen) events.menu.chosen(*outcome.chosen);
}

void TerminalScreen::handleInLog(const Key& key) {
  switch (logBox_->handle(key)) {
    case LogBox::Outcome::copy:
      return copy(wholeLog());
    case LogBox::Outcome::write:
      if (events.writeLog) events.writeLog(wholeLog() + "\n");
      return;
    case LogBox::Outcome::close:
      return logBox_.reset();
    default:
      return;
  }
}

std::string TerminalScreen::wholeLog() const {
  auto lines = log_.lines();
  for (auto& line : lines) line = visible(line);
  return joined(lines, "\n");
}

void TerminalScreen::openLog() {
  logBox_.emplace("Log", "", capabilities_);
  logBox_->toEnd();
  showLogLines();
}

void TerminalScreen::showLogLines() {
  unseenLines_ = 0;
  logBox_->setText(log_.lines());
}

void TerminalScreen::openHelp() {
  presentAlert({.heading = "Keys",
                .explanation = displayText::shown(helpText, capabilities_),
                .buttons = {"Close"},
                .requestedByUser = true},
               "", [](const auto&) {});
}

void TerminalScreen::activateNotification() {
  const auto* const shown = notices_.shown();
  if (shown == nullptr || shown->actionTitle.empty()) return;
  const std::string identifier = shown->identifier;
  notices_.remove(identifier);
  if (events.notificationActivated) events.notificationActivated(identifier);
}

}  // namespace zephyl
