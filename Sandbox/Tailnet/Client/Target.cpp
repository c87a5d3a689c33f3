#include "Tailnet/Client/Target.hpp"

#include <chrono>
#include <utility>

#include "Common/Async.hpp"
#include "Common/Log.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Files.hpp"

namespace zephyl::sandbox {
namespace {

using namespace std::chrono_literals;

constexpr auto resolveInterval = 5s;

/// Returns the host of a web address in lower case. An address without scheme begins with its host.
std::string hostOf(std::string_view address) {
  if (const auto scheme = address.find("://"); scheme != std::string_view::npos) {
    address.remove_prefix(scheme + 3);
  }
  auto authority = address.substr(0, address.find_first_of("/?#"));
  if (const auto user = authority.rfind('@'); user != std::string_view::npos) {
    authority.remove_prefix(user + 1);
  }
  const auto end = authority.starts_with('[') ? authority.find(']') : authority.find(':');
  return lowerCased(authority.substr(0, end));
}

}  // namespace

Target::Target(std::string address, std::string stateDirectory)
    : address_(std::move(address)), stateDirectory_(std::move(stateDirectory)) {}

void Target::resolve() {
  resolved_ = canResolve();
  if (resolved_) {
    log("target resolved to {}", address_);
  } else {
    log("TARGET UNRESOLVED: {}", address_);
  }
}

boost::asio::awaitable<void> Target::keepResolving() {
  while (!resolved_) {
    co_await pause(resolveInterval);
    if (canResolve()) resolve();
  }
}

bool Target::canResolve() const {
  const auto host = hostOf(address_);
  if (!host.ends_with(".invalid") && host.find("unresolved") == std::string::npos) return true;
  return fileExists(stateDirectory_ + "/resolve");
}

}  // namespace zephyl::sandbox
