#include "System/Processes/ServiceManager.hpp"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdlib>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "System/Concurrency/MainLoop.hpp"
#include "System/Data/Result.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Environment.hpp"
#include "System/Files/Log.hpp"

namespace zephyl {

namespace {

constexpr const char* socketVariable = "NOTIFY_SOCKET";
constexpr const char* limitVariable = "WATCHDOG_USEC";
constexpr const char* processVariable = "WATCHDOG_PID";

bool isSocketAddress(const std::string& address) {
  const bool isKnownKind = address.starts_with('/') || address.starts_with('@');
  return isKnownKind && address.size() > 1 && address.size() < sizeof(sockaddr_un::sun_path);
}

struct SocketAddress {
  sockaddr_un value{};
  socklen_t size = 0;
};

SocketAddress socketAddress(const std::string& text) {
  SocketAddress address{.size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path))};
  address.value.sun_family = AF_UNIX;
  address.size += static_cast<socklen_t>(text.size());
  std::ranges::copy(text, address.value.sun_path);
  if (text.starts_with('@')) address.value.sun_path[0] = '\0';
  return address;
}

/// The limit applies to the process that the manager started, not to its children.
bool isForThisProcess() {
  const auto process = environmentVariable(processVariable);
  return !process || parseDecimal(*process) == static_cast<long long>(::getpid());
}

}  // namespace

ServiceManager ServiceManager::fromEnvironment() {
  ServiceManager manager;
  const std::string address = environmentVariable(socketVariable).value_or("");
  if (address.empty()) return manager;
  if (!isSocketAddress(address)) {
    log("ignoring {}: {} is not the address of a local socket", socketVariable, visible(address));
    return manager;
  }
  manager.socket_.reset(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  manager.address_ = address;
  const std::string limit = environmentVariable(limitVariable).value_or("");
  const auto microseconds = parseDecimal(limit);
  if (microseconds && *microseconds > 0 && isForThisProcess()) {
    manager.watchdogLimit_ = limit;
    manager.watchdogInterval_ = std::chrono::microseconds(*microseconds) / 2;
  }
  return manager;
}

Timer ServiceManager::feedWatchdog(MainLoop& mainLoop, Clock& clock) const {
  if (!watchdogInterval_) return {};
  return mainLoop.every(clock, *watchdogInterval_, [this] { notify("WATCHDOG=1"); });
}

void ServiceManager::restoreEnvironment() const {
  if (!exists()) return;
  ::setenv(socketVariable, address_.c_str(), 1);
  if (!watchdogInterval_) return;
  ::setenv(limitVariable, watchdogLimit_.c_str(), 1);
  ::setenv(processVariable, std::to_string(::getpid()).c_str(), 1);
}

void ServiceManager::notify(std::string_view state) const {
  if (!exists()) return;
  const SocketAddress to = socketAddress(address_);
  const auto sent = ::sendto(socket_.get(), state.data(), state.size(), MSG_NOSIGNAL,
                             reinterpret_cast<const sockaddr*>(&to.value), to.size);
  if (sent < 0)
    log("could not notify the service manager: {}", systemError(address_, errno).message);
}

}  // namespace zephyl
