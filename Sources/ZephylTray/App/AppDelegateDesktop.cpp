#include <algorithm>

#include "System/Concurrency/MainLoop.hpp"
#include "System/Network/HostLookup.hpp"
#include "ZephylTray/Actions/WebAddress.hpp"
#include "ZephylTray/App/AppDelegate.hpp"
#include "ZephylTray/Config/Config.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {

namespace {

/// Whether a host name leads to this machine and nowhere else. An answer that names any other
/// machine was made up by a resolver that answers for every name.
bool leadsHere(const HostAddresses& addresses) {
  return !addresses.empty() && std::ranges::all_of(addresses, isLoopback);
}

}  // namespace

void AppDelegate::openDesktopWindow() {
  desktopApp_->launch(desktopLaunch());
}

void AppDelegate::openInShell(const std::string& screen) {
  control_.setPendingRoute(screen);
  openDesktopWindow();
}

bool AppDelegate::needsOnboarding() {
  return std::ranges::none_of(Servers::enabled(), [](const ServerEntry& entry) {
    return entry.isJoined() || !entry.address.value_or("").empty();
  });
}

std::optional<ControlAccess> AppDelegate::controlAccess() const {
  if (!control_.isListening()) return std::nullopt;
  return ControlAccess{.token = control_.token(), .port = control_.port()};
}

DesktopLaunch AppDelegate::desktopLaunch() const {
  const auto primary = tailnet_->primary();
  return {.serverURL = primary ? webAddressOf(primary->state().boundAddress) : std::nullopt,
          .needsOnboarding = needsOnboarding(),
          .control = controlAccess()};
}

/// Once per server and run: the user is shown the servers, not nagged.
void AppDelegate::announceUnresolvedTarget(const ServerEntry& server) {
  if (!DesktopApp::isInstalled()) return;
  if (unresolvedAnnounced_.insert(server.id).second) openInShell("servers");
}

void AppDelegate::lookUpInternalHost() {
  if (internalHostLookedUp_ || tailnet_->instances().empty()) return;
  internalHostLookedUp_ = true;
  lookUpHost(runtime_.launcher, runtime_.mainLoop, std::string(internalWebHost),
             weakly([](AppDelegate& self, const HostAddresses& addresses) {
               self.zephylInternalResolves_ = leadsHere(addresses);
             }));
}

std::optional<std::string> AppDelegate::webAddressOf(
    const std::optional<std::string>& boundAddress) const {
  if (boundAddress.value_or("").empty()) return std::nullopt;
  return webAddress(*boundAddress, zephylInternalResolves_);
}

}  // namespace zephyl
