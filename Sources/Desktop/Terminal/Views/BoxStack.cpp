#include "Desktop/Terminal/Views/BoxStack.hpp"

#include <utility>

#include "System/Data/Text.hpp"

namespace zephyl {

BoxStack::Number BoxStack::addAlert(const Alert& alert, const Look& look, const std::string& text,
                                    AlertDone done) {
  alerts_.emplace_back(++last_, alert, look, std::move(done));
  alerts_.back().box.setText(text);
  return last_;
}

BoxStack::Number BoxStack::addLog(const LogWindow& window, const Look& look, LogTold tell) {
  logs_.emplace_back(++last_, window, look, std::move(tell));
  showLog(logs_.back());
  return last_;
}

void BoxStack::showLog(OpenLog& log) {
  const bool whole = log.window.shownText == log.window.fullText || log.window.fullText.empty();
  log.box.setText({log.showsAll ? log.window.fullText : log.window.shownText});
  log.box.setToggle(whole ? "" : log.showsAll ? "shorten" : "full log");
}

bool BoxStack::showProgress(Number number, const Progress& progress) {
  for (auto& each : alerts_) {
    if (each.number == number) each.box.showProgress(progress);
  }
  return hasAlert() && alerts_.front().number == number;
}

void BoxStack::close(Number number) {
  alerts_.remove_if([&](const OpenAlert& each) { return each.number == number; });
  logs_.remove_if([&](const OpenLog& each) { return each.number == number; });
}

void BoxStack::failAll() {
  // What is told may open or close dialogs.
  while (!alerts_.empty()) {
    const auto done = std::move(alerts_.front().done);
    alerts_.pop_front();
    done(std::nullopt);
  }
  while (!logs_.empty()) {
    const auto tell = std::move(logs_.front().tell);
    logs_.pop_front();
    tell(LogWindowEvent::closed);
  }
}

std::optional<BoxStack::Number> BoxStack::top() const {
  if (!alerts_.empty()) return alerts_.front().number;
  if (!logs_.empty()) return logs_.back().number;
  return std::nullopt;
}

bool BoxStack::topIsRequestedByUser() const {
  if (hasAlert()) return alerts_.front().box.isRequestedByUser();
  return logs_.back().window.requestedByUser;
}

bool BoxStack::topPermitsSomething() const {
  return hasAlert() && alerts_.front().box.permitsSomething();
}

void BoxStack::handle(const Key& key, bool mayAnswer,
                      const std::function<void(const std::string&)>& copy) {
  if (hasAlert()) {
    handleAlert(key, mayAnswer);
  } else if (hasLog()) {
    handleLog(key, mayAnswer, copy);
  }
}

void BoxStack::handleAlert(const Key& key, bool mayAnswer) {
  auto answer = alerts_.front().box.handle(key, mayAnswer);
  if (!answer) return;
  const auto done = std::move(alerts_.front().done);
  alerts_.pop_front();
  done(std::move(answer));
}

void BoxStack::handleLog(const Key& key, bool mayAnswer,
                         const std::function<void(const std::string&)>& copy) {
  auto& log = logs_.back();
  switch (log.box.handle(key, mayAnswer)) {
    case LogBox::Outcome::copy:
      return copy(visibleLines(log.window.fullText));
    case LogBox::Outcome::write: {
      const auto tell = log.tell;
      return tell(LogWindowEvent::openInTextEdit);
    }
    case LogBox::Outcome::toggle:
      log.showsAll = !log.showsAll;
      return showLog(log);
    case LogBox::Outcome::close: {
      const auto tell = std::move(log.tell);
      logs_.pop_back();
      return tell(LogWindowEvent::closed);
    }
    case LogBox::Outcome::none:
      return;
  }
}

void BoxStack::draw(Canvas& canvas, bool mayAnswer) {
  if (hasLog()) {
    canvas.clear(canvas.area());
    logs_.back().box.draw(canvas, canvas.area(), mayAnswer);
  }
  if (hasAlert()) alerts_.front().box.draw(canvas, mayAnswer);
}

}  // namespace zephyl
