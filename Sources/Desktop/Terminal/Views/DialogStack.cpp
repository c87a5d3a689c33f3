#include "Desktop/Terminal/Views/DialogStack.hpp"

#include <algorithm>
#include <utility>

#include "System/Data/Text.hpp"

namespace zephyl {

DialogStack::Number DialogStack::addAlert(const Alert& alert,
                                          const TerminalCapabilities& capabilities,
                                          const std::string& text, AlertDone done) {
  auto place = alerts_.end();
  if (!alert.permittingButtons.empty()) {
    place = std::ranges::find_if(
        alerts_, [](const OpenAlert& each) { return !each.box.permitsSomething(); });
  }
  const auto added = alerts_.emplace(place, ++last_, alert, capabilities, std::move(done));
  added->box.setText(text);
  return last_;
}

DialogStack::Number DialogStack::addLog(const LogWindow& window,
                                        const TerminalCapabilities& capabilities,
                                        LogNotify notify) {
  logs_.emplace_back(++last_, window, capabilities, std::move(notify));
  showLog(logs_.back());
  return last_;
}

void DialogStack::showLog(OpenLog& log) {
  const bool whole = log.window.shownText == log.window.fullText || log.window.fullText.empty();
  log.box.setText({log.showsAll ? log.window.fullText : log.window.shownText});
  log.box.setToggle(whole ? "" : log.showsAll ? "shorten" : "full log");
}

bool DialogStack::showProgress(Number number, const Progress& progress) {
  for (auto& each : alerts_) {
    if (each.number == number) each.box.showProgress(progress);
  }
  return hasAlert() && alerts_.front().number == number;
}

void DialogStack::close(Number number) {
  alerts_.remove_if([&](const OpenAlert& each) { return each.number == number; });
  logs_.remove_if([&](const OpenLog& each) { return each.number == number; });
}

void DialogStack::failAll() {
  // The handlers may open or close dialogs.
  while (!alerts_.empty()) {
    const auto done = std::move(alerts_.front().done);
    alerts_.pop_front();
    done(std::nullopt);
  }
  while (!logs_.empty()) {
    const auto notify = std::move(logs_.front().notify);
    logs_.pop_front();
    notify(LogWindowEvent::closed);
  }
}

std::optional<DialogStack::Number> DialogStack::top() const {
  if (!alerts_.empty()) return alerts_.front().number;
  if (!logs_.empty()) return logs_.back().number;
  return std::nullopt;
}

bool DialogStack::topIsRequestedByUser() const {
  if (hasAlert()) return alerts_.front().box.isRequestedByUser();
  return logs_.back().window.requestedByUser;
}

bool DialogStack::topPermitsSomething() const {
  return hasAlert() && alerts_.front().box.permitsSomething();
}

void DialogStack::handle(const Key& key, bool mayAnswer,
                         const std::function<void(const std::string&)>& copy) {
  if (hasAlert()) {
    handleAlert(key, mayAnswer);
  } else if (hasLog()) {
    handleLog(key, mayAnswer, copy);
  }
}

void DialogStack::handleAlert(const Key& key, bool mayAnswer) {
  auto answer = alerts_.front().box.handle(key, mayAnswer);
  if (!answer) return;
  const auto done = std::move(alerts_.front().done);
  alerts_.pop_front();
  done(std::move(answer));
}

void DialogStack::handleLog(const Key& key, bool mayAnswer,
                            const std::function<void(const std::string&)>& copy) {
  auto& log = logs_.back();
  switch (log.box.handle(key, mayAnswer)) {
    case LogBox::Outcome::copy:
      return copy(visibleLines(log.window.fullText));
    case LogBox::Outcome::write: {
      const auto notify = log.notify;
      return notify(LogWindowEvent::openInTextEdit);
    }
    case LogBox::Outcome::toggle:
      log.showsAll = !log.showsAll;
      return showLog(log);
    case LogBox::Outcome::close: {
      const auto notify = std::move(log.notify);
      logs_.pop_back();
      return notify(LogWindowEvent::closed);
    }
    case LogBox::Outcome::none:
      return;
  }
}

void DialogStack::draw(Canvas& canvas, bool mayAnswer) {
  if (hasLog()) {
    canvas.clear(canvas.area());
    logs_.back().box.draw(canvas, canvas.area(), mayAnswer);
  }
  if (hasAlert()) alerts_.front().box.draw(canvas, mayAnswer);
}

}  // namespace zephyl
