#include "ZephylTray/Actions/WindowLauncher.hpp"

#include <algorithm>

#include "System/Concurrency/Weakly.hpp"
#include "System/Data/URL.hpp"
#include "ZephylTray/Actions/WebAddress.hpp"

namespace zephyl {

namespace {

/// Returns whether a host name resolves to this machine only. A resolver that answers for every
/// name returns addresses of other machines.
bool isThisMachine(const HostAddresses& addresses) {
  return !addresses.empty() && std::ranges::all_of(addresses, isLoopback);
}

}  // namespace

void WindowLauncher::openDesktopWindow() {
  port_.launch({.serverURL = webAddressOf(port_.primaryAddress()),
                .needsOnboarding = needsOnboarding(),
                .control = port_.controlAccess()});
}

void WindowLauncher::openInShell(const std::string& screen) {
  port_.setPendingRoute(screen);
  openDesktopWindow();
}

bool WindowLauncher::openInShellIfInstalled(const std::string& screen) {
  if (!port_.isInstalled()) return false;
  openInShell(screen);
  return true;
}

void WindowLauncher::openNextStep() {
  openInShell(needsOnboarding() ? "join" : "servers");
}

bool WindowLauncher::needsOnboarding() const {
  return std::ranges::none_of(port_.enabledServers(), [](const ServerEntry& entry) {
    return entry.isJoined() || !entry.address.value_or("").empty();
  });
}

void WindowLauncher::announceUnresolvedTarget(const ServerEntry& server) {
  if (!port_.isInstalled()) return;
  if (unresolvedAnnounced_.insert(server.id).second) openInShell("servers");
}

void WindowLauncher::lookUpInternalHost() {
  if (std::exchange(internalHostLookedUp_, true)) return;
  port_.lookUpHost(std::string(internalWebHost),
                   weakly(this, [](WindowLauncher& self, const HostAddresses& addresses) {
                     self.zephylInternalResolves_ = isThisMachine(addresses);
                   }));
}

std::optional<std::string> WindowLauncher::webAddressOf(
    const std::optional<std::string>& boundAddress) const {
  if (boundAddress.value_or("").empty()) return std::nullopt;
  return webAddress(*boundAddress, zephylInternalResolves_);
}

void WindowLauncher::openWebPage(const std::optional<std::string>& boundAddress) {
  const auto address = webAddressOf(boundAddress);
  if (address && URL::parse(*address)) port_.openURL(*address);
}

}  // namespace zephyl
