#include "ZephylTray/Tailnet/TailnetChildren.hpp"

#include <utility>

#include "System/Data/Format.hpp"
#include "ZephylTray/Tailnet/PublishedTailnet.hpp"

namespace zephyl {

TailnetChildren::TailnetChildren(Clock& clock, PublishedTailnet& published, RunAfter runAfter)
    : clock_(clock), published_(published), runAfter_(std::move(runAfter)) {}

TailnetChildren::SharedPair TailnetChildren::pair() const {
  const std::scoped_lock lock(mutex_);
  return pair_;
}

bool TailnetChildren::isRunning() const {
  const auto current = pair();
  return current && current->isRunning();
}

void TailnetChildren::requestEnd() const {
  if (const auto current = pair()) current->requestEnd();
}

void TailnetChildren::setPair(SharedPair pair) {
  const std::scoped_lock lock(mutex_);
  pair_ = std::move(pair);
}

void TailnetChildren::whenEnded(Task then) {
  whenEnded_.push_back(std::move(then));
}

void TailnetChildren::end() {
  requestEnd();
  continueEnd();
}

void TailnetChildren::handleExit() {
  if (graceHolder_) continueEnd();
}

/// Starts the grace of the next child that still runs.
void TailnetChildren::continueEnd() {
  const auto current = pair();
  const auto child = current ? current->nextToEnd() : nullptr;
  if (!child) return finishEnd();
  if (std::exchange(graceHolder_, child) == child) return;
  runAfter_(grace, [this, weak = std::weak_ptr(child)] {
    const auto late = weak.lock();
    if (late && late->isRunning()) kill(*late);
  });
}

void TailnetChildren::finishEnd() {
  graceHolder_.reset();
  setPair(nullptr);
  for (const auto& task : std::exchange(whenEnded_, {})) task();
}

void TailnetChildren::awaitEnd(const TailnetPair& pair, Instant deadline) const {
  for (const auto& child : {pair.client(), pair.daemon()}) {
    if (child && !child->waitForExit(deadline - clock_.now())) kill(*child);
  }
}

void TailnetChildren::kill(ChildProcess& child) const {
  published_.logMessage(formatText("{} ignored SIGTERM; killing it", child.pid()));
  child.killGroup();
}

}  // namespace zephyl
