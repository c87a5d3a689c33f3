#include "Desktop/Freedesktop/Applications.hpp"

#include <csignal>
#include <utility>

#include "Desktop/Freedesktop/BusText.hpp"

namespace zephyl {

BusMessage newActivation(const BusConnection& connection, const char* service,
                         const std::string& identifier, const std::string& token) {
  const auto path = applicationPath(identifier);
  auto call =
      connection.newCall({service, path.c_str(), "org.freedesktop.Application"}, "Activate");
  BusWriter writer(call.get());
  writer.open('a', "{sv}");
  if (!token.empty()) {
    writer.append("{sv}", "activation-token", "s", token.c_str())
        .append("{sv}", "desktop-startup-id", "s", token.c_str());
  }
  writer.close();
  return writer.status() < 0 ? nullptr : std::move(call);
}

void Applications::connected(BusConnection& connection) {
  connection_ = &connection;
  settled_ = true;
  std::vector<std::string> identifiers;
  {
    const std::scoped_lock lock(mutex_);
    for (const auto& [identifier, known] : known_) identifiers.push_back(identifier);
  }
  for (const auto& identifier : identifiers) watch(identifier);
}

void Applications::disconnected() {
  connection_ = nullptr;
  settled_ = true;
  watches_.clear();
  const std::scoped_lock lock(mutex_);
  for (auto& [identifier, known] : known_) known = {.answered = true};
  answered_.notify_all();
}

std::vector<RunningApplication> Applications::running(const std::string& identifier) {
  if (sd_bus_service_name_is_valid(identifier.c_str()) <= 0) return {};
  std::unique_lock lock(mutex_);
  const auto [entry, isFirst] = known_.try_emplace(identifier);
  Known& known = entry->second;
  if (isFirst) {
    bus_.post([this, identifier] { watch(identifier); });
    answered_.wait_for(lock, firstAnswerLimit, [&] { return known.answered; });
  }
  if (known.pid == 0) return {};
  return {{identifier, known.pid}};
}

void Applications::watch(const std::string& identifier) {
  if (!settled_) return;
  if (connection_ == nullptr) return learn(identifier, 0);
  watches_[identifier].owner = connection_->watchOwner(
      identifier,
      [this, identifier](const std::string& owner) { ownerChanged(identifier, owner); });
}

void Applications::ownerChanged(const std::string& identifier, const std::string& owner) {
  Watch& watch = watches_[identifier];
  watch.process.reset();
  if (owner.empty()) return learn(identifier, 0);
  const auto query = connection_->newCall(
      {"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus"},
      "GetConnectionUnixProcessID");
  BusWriter(query.get()).append("s", owner.c_str());
  watch.process = connection_->call(query, [this, identifier](sd_bus_message& reply) {
    std::uint32_t pid = 0;
    if (!isError(reply)) sd_bus_message_read(&reply, "u", &pid);
    learn(identifier, static_cast<pid_t>(pid));
  });
}

void Applications::learn(const std::string& identifier, pid_t pid) {
  const std::scoped_lock lock(mutex_);
  known_[identifier] = {.answered = true, .pid = pid};
  answered_.notify_all();
}

void Applications::activate(const std::string& identifier, const std::string& token) {
  bus_.post([this, identifier, token] { sendActivation(identifier, token); });
}

void Applications::sendActivation(const std::string& identifier, const std::string& token) const {
  if (connection_ == nullptr) return;
  const auto call = newActivation(*connection_, identifier.c_str(), identifier, token);
  if (!call) return;
  sd_bus_message_set_expect_reply(call.get(), 0);
  sd_bus_message_set_auto_start(call.get(), 0);
  connection_->send(call);
}

void Applications::terminate(const RunningApplication& application) {
  const std::scoped_lock lock(mutex_);
  const auto known = known_.find(application.identifier);
  if (known == known_.end() || known->second.pid != application.pid) return;
  if (application.pid > 0) kill(application.pid, SIGTERM);
}

}  // namespace zephyl
