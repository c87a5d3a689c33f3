#include "ZephylTray/Tailnet/TailnetPair.hpp"

#include <utility>

namespace zephyl {

namespace {

bool runs(const TailnetPair::Child& child) {
  return child && child->isRunning();
}

}  // namespace

void TailnetPair::setDaemon(Child daemon) {
  const std::scoped_lock lock(mutex_);
  daemon_ = std::move(daemon);
}

void TailnetPair::setClient(Child client) {
  const std::scoped_lock lock(mutex_);
  client_ = std::move(client);
}

TailnetPair::Child TailnetPair::daemon() const {
  const std::scoped_lock lock(mutex_);
  return daemon_;
}

TailnetPair::Child TailnetPair::client() const {
  const std::scoped_lock lock(mutex_);
  return client_;
}

bool TailnetPair::isRunning() const {
  const std::scoped_lock lock(mutex_);
  return !ended_ && runs(daemon_) && runs(client_);
}

TailnetPair::Child TailnetPair::nextToEnd() const {
  const std::scoped_lock lock(mutex_);
  if (runs(client_)) return client_;
  return runs(daemon_) ? daemon_ : nullptr;
}

void TailnetPair::markEnded() {
  const std::scoped_lock lock(mutex_);
  ended_ = true;
}

void TailnetPair::markFailed() {
  const std::scoped_lock lock(mutex_);
  ended_ = true;
  failed_ = true;
}

bool TailnetPair::isEnded() const {
  const std::scoped_lock lock(mutex_);
  return ended_;
}

bool TailnetPair::hasFailed() const {
  const std::scoped_lock lock(mutex_);
  return failed_;
}

void TailnetPair::setKeyNumber(std::uint64_t number) {
  const std::scoped_lock lock(mutex_);
  keyNumber_ = number;
}

std::uint64_t TailnetPair::keyNumber() const {
  const std::scoped_lock lock(mutex_);
  return keyNumber_;
}

void TailnetPair::requestEnd() {
  const std::scoped_lock lock(mutex_);
  ended_ = true;
  if (client_ && !std::exchange(clientSignalled_, true)) client_->terminate();
  if (daemon_ && !std::exchange(daemonSignalled_, true)) daemon_->terminate();
}

}  // namespace zephyl
