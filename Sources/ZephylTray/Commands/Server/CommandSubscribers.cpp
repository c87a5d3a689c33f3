#include "ZephylTray/Commands/Server/CommandSubscribers.hpp"

#include <utility>

#include "System/Concurrency/MainLoop.hpp"
#include "System/Concurrency/Weakly.hpp"
#include "System/Data/Format.hpp"
#include "ZephylTray/Commands/Protocol/CommandMessages.hpp"

namespace zephyl {

namespace {

std::string event(json::Value value) {
  return encodeCommandReply({.kind = CommandReply::Kind::event, .value = std::move(value)});
}

}  // namespace

void CommandSubscribers::watch(const Client& client) {
  watchers_.push_back({.client = client, .sent = {}});
  update(watchers_.back(), currentState());
  startTimer();
}

void CommandSubscribers::follow(const Client& client, std::optional<std::string> serverId) {
  followers_.push_back({.client = client, .serverId = std::move(serverId)});
  const auto tail = port_.log(followers_.back().serverId, 0);
  followers_.back().position = tail.end;
  client.send(event(json::encode(tail.lines)));  // sent even if empty, as an acknowledgement
  startTimer();
}

void CommandSubscribers::remove(std::uint64_t clientId) {
  const auto isIt = [clientId](const auto& each) { return each.client.id() == clientId; };
  std::erase_if(watchers_, isIt);
  std::erase_if(followers_, isIt);
  if (empty()) timer_.cancel();
}

void CommandSubscribers::startTimer() {
  if (timer_) return;
  timer_ = mainLoop_.every(clock_, interval,
                           weakly(this, [](CommandSubscribers& self) { self.update(); }));
}

void CommandSubscribers::update() {
  if (!watchers_.empty()) {
    const auto state = currentState();
    for (auto& watcher : watchers_) update(watcher, state);
  }
  for (auto& follower : followers_) update(follower);
}

void CommandSubscribers::update(Watcher& watcher, const std::string& state) {
  if (watcher.sent == state) return;
  watcher.sent = state;
  watcher.client.send(state);
}

void CommandSubscribers::update(Follower& follower) {
  auto tail = port_.log(follower.serverId, follower.position);
  follower.position = tail.end;
  if (tail.lines.empty()) return;
  if (tail.skipped > 0) {
    tail.lines.insert(tail.lines.begin(), formatText("… {} lines left out", tail.skipped));
  }
  follower.client.send(event(json::encode(tail.lines)));
}

std::string CommandSubscribers::currentState() const {
  return event(port_.state());
}

}  // namespace zephyl
