#include <algorithm>

#include "System/HostLookup.hpp"
#include "System/MainLoop.hpp"
#include "ZephylTray/AppDelegate.hpp"
#include "ZephylTray/Config.hpp"
#include "ZephylTray/Servers.hpp"
#include "ZephylTray/WebAddress.hpp"

namespace zephyl {

void AppDelegate::openDesktopWindow() {
  desktopApp_->launch(desktopLaunch());
}

void AppDelegate::openInShell(const std::string& screen) {
  control_.setPendingRoute(screen);
  openDesktopWindow();
}

bool AppDelegate::needsOnboarding() {
  return std::ranges::none_of(Servers::enabled(), [](const ServerEntry& entry) {
    return !entry.tailnetFingerprint.value_or("").empty() || !entry.address.value_or("").empty();
  });
}

DesktopLaunch AppDelegate::desktopLaunch() const {
  const auto primary = tailnet_->primary();
  return {.serverURL = primary ? webAddressOf(primary->state().boundAddress) : std::nullopt,
          .needsOnboarding = needsOnboarding(),
          .token = control_.token(),
          .port = Config::onboardingPort()};
}

/// Once per server and run: the user is shown the servers, not nagged.
void AppDelegate::announceUnresolvedTarget(const ServerEntry& server) {
  if (!DesktopApp::isInstalled()) return;
  if (unresolvedAnnounced_.insert(server.id).second) openInShell("servers");
}

void AppDelegate::lookUpInternalHost() {
  const auto instances = tailnet_->instances();
  const bool anyBound = std::ranges::any_of(
      instances, [](const auto& each) { return each->state().boundAddress.has_value(); });
  if (!anyBound || internalHostLookedUp_) return;
  internalHostLookedUp_ = true;
  const auto keep =
      weakly([](AppDelegate& self, bool resolves) { self.zephylInternalResolves_ = resolves; });
  lookUpHost(runtime_.launcher, std::string(internalWebHost),
             [&mainLoop = runtime_.mainLoop, keep](bool resolves) {
               mainLoop.async([keep, resolves] { keep(resolves); });
             });
}

std::optional<std::string> AppDelegate::webAddressOf(
    const std::optional<std::string>& boundAddress) const {
  if (boundAddress.value_or("").empty()) return std::nullopt;
  return webAddress(*boundAddress, zephylInternalResolves_);
}

}  // namespace zephyl
