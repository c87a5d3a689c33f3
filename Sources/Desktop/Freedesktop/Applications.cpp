#include "Desktop/Freedesktop/Applications.hpp"

#include <csignal>
#include <utility>

#include <sys/syscall.h>
#include <unistd.h>

#include "Desktop/Freedesktop/Bus/BusText.hpp"

namespace zephyl {

namespace {

/// Returns a pidfd, or a closed descriptor if there is no such process.
FileDescriptor openProcess(pid_t pid) {
  if (pid <= 0) return {};
  return FileDescriptor(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
}

void sendSignal(const FileDescriptor& process, int signal) {
  ::syscall(SYS_pidfd_send_signal, process.get(), signal, nullptr, 0);
}

}  // namespace

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
  for (auto& [identifier, known] : known_) known = {.answered = true, .process = nullptr};
  answered_.notify_all();
}

std::vector<RunningApplication> Applications::running(const std::string& identifier) {
  if (sd_bus_service_name_is_valid(identifier.c_str()) <= 0) return {};
  std::unique_lock lock(mutex_);
  const auto [entry, isFirst] = known_.try_emplace(identifier);
  Known& known = entry->second;
  if (isFirst) {
    bus_.post([this, identifier] { watch(identifier); });
    answered_.wait_for(lock, firstAnswerTimeout, [&] { return known.answered; });
  }
  if (known.pid == 0) return {};
  return {{identifier, known.pid}};
}

void Applications::watch(const std::string& identifier) {
  if (!settled_) return;
  if (connection_ == nullptr) return store(identifier, {});
  Watch& watch = watches_.try_emplace(identifier, identifier).first->second;
  watch.name.watch(*connection_, [this, &watch](const std::string&) { ownerChanged(watch); });
}

void Applications::ownerChanged(Watch& watch) {
  watch.question.reset();
  if (watch.name.owner().empty()) return store(watch.name.name(), {});
  queryProcess(watch, [this, &watch](pid_t pid) { openOwner(watch, pid); });
}

/// Opens the process and queries again. An owner that is still connected has not ended, so the
/// pidfd, which is older than the second answer, refers to its process and not to a successor.
void Applications::openOwner(Watch& watch, pid_t pid) {
  const auto process = std::make_shared<const FileDescriptor>(openProcess(pid));
  if (!*process) return store(watch.name.name(), {.pid = pid, .process = nullptr});
  queryProcess(watch, [this, &watch, pid, process](pid_t again) {
    const bool confirmed = again == pid;
    store(watch.name.name(), confirmed ? Known{.pid = pid, .process = process} : Known{});
  });
}

void Applications::queryProcess(Watch& watch, std::function<void(pid_t)> answer) const {
  watch.question = connection_->queryProcess(watch.name.owner(), std::move(answer));
}

void Applications::store(const std::string& identifier, Known known) {
  known.answered = true;
  const std::scoped_lock lock(mutex_);
  known_[identifier] = std::move(known);
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
  if (const auto& process = known->second.process) sendSignal(*process, SIGTERM);
}

}  // namespace zephyl
