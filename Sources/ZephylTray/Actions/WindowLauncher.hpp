#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "System/Network/HostLookup.hpp"
#include "ZephylTray/Actions/DesktopApp.hpp"
#include "ZephylTray/Registry/ServerEntry.hpp"

namespace zephyl {

/// Leads the user to where servers are shown: to the desktop window app, at one of its screens, or
/// to a server's web page in a browser.
///
/// A server's web address is that of its tunnel, or the servers' internal host name if that leads
/// to this machine. The name is looked up once; until its answer comes it counts as unresolved.
///
/// Main thread only. Owned by a `shared_ptr`; the look-up holds it weakly.
class WindowLauncher : public std::enable_shared_from_this<WindowLauncher> {
 public:
  struct Port {
    std::function<bool()> isInstalled;          ///< whether the desktop app can be launched
    std::function<void(DesktopLaunch)> launch;  ///< starts the desktop app or shows it
    /// Keeps a screen for the desktop app, which asks for it over the control API.
    std::function<void(std::string screen)> setPendingRoute;
    /// Returns nullopt while the control API is not available.
    std::function<std::optional<ControlAccess>()> controlAccess;
    std::function<std::vector<ServerEntry>()> enabledServers;
    /// Return the local address ("host:port") of the tunnel to the first enabled server, and of the
    /// tunnel to a given server. nullopt while it is unknown.
    std::function<std::optional<std::string>()> primaryAddress;
    std::function<std::optional<std::string>(const std::string& serverId)> addressOf;
    std::function<void(const std::string& url)> openURL;
    /// As `zephyl::lookUpHost`.
    std::function<void(const std::string& host, std::function<void(const HostAddresses&)> done)>
        lookUpHost;
  };

  explicit WindowLauncher(Port port) : port_(std::move(port)) {}

  /// Shows the desktop app as it is, or starts it at its start page.
  void openDesktopWindow();
  /// Shows the desktop app at a screen, such as "servers".
  void openInShell(const std::string& screen);
  /// The same if the app is installed. Returns whether it is.
  bool openInShellIfInstalled(const std::string& screen);
  /// Shows the screen where the user goes on: "join" while onboarding is needed, else "servers".
  void openWhereToGoOn();
  /// Open the web page of the first enabled server, or of a given server. Do nothing while its
  /// address is unknown.
  void openInBrowser() { openWebPage(port_.primaryAddress()); }
  void openServerInBrowser(const std::string& serverId) { openWebPage(port_.addressOf(serverId)); }

  /// Whether no server can be used yet: none that is enabled is joined or has an address.
  [[nodiscard]] bool needsOnboarding() const;
  /// Shows the servers because the target of one could not be resolved: once per server and run.
  void announceUnresolvedTarget(const ServerEntry& server);
  /// Looks the internal host name up, in the background. The first call counts; its answer is
  /// final for the run.
  void lookUpInternalHost();
  /// Returns the web address of a server whose tunnel is bound to `boundAddress`; nullopt if that
  /// is nullopt or empty.
  [[nodiscard]] std::optional<std::string> webAddressOf(
      const std::optional<std::string>& boundAddress) const;

 private:
  void openWebPage(const std::optional<std::string>& boundAddress);

  const Port port_;
  std::set<std::string> unresolvedAnnounced_;
  bool internalHostLookedUp_ = false;
  bool zephylInternalResolves_ = false;
};

}  // namespace zephyl
