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

/// Opens the displays of servers: the desktop window app at one of its screens, or a server's web
/// page in a browser.
///
/// A server's web address is that of its tunnel, or the servers' internal host name if that
/// resolves to this machine. The name is looked up once. Until the result is known it counts as
/// unresolved.
///
/// Main thread only. Owned by a `shared_ptr`. The look-up holds it weakly.
class WindowLauncher : public std::enable_shared_from_this<WindowLauncher> {
 public:
  struct Port {
    std::function<bool()> isInstalled;          ///< whether the desktop app can be launched
    std::function<void(DesktopLaunch)> launch;  ///< starts the desktop app or shows it
    /// Stores a screen for the desktop app, which requests it over the control API.
    std::function<void(std::string screen)> setPendingRoute;
    /// Returns nullopt while the control API is not available.
    std::function<std::optional<ControlAccess>()> controlAccess;
    std::function<std::vector<ServerEntry>()> enabledServers;
    /// Return the local address ("host:port") of the tunnel to the first enabled server and to a
    /// given server, or nullopt while it is unknown.
    std::function<std::optional<std::string>()> primaryAddress;
    std::function<std::optional<std::string>(const std::string& serverId)> addressOf;
    std::function<void(const std::string& url)> openURL;
    /// As `zephyl::lookUpHost`.
    std::function<void(const std::string& host, std::function<void(const HostAddresses&)> done)>
        lookUpHost;
  };

  explicit WindowLauncher(Port port) : port_(std::move(port)) {}

  /// Brings the desktop app to the front without changing its screen, or starts it at its start
  /// page.
  void openDesktopWindow();
  /// Opens the desktop app at a screen, such as "servers".
  void openInShell(const std::string& screen);
  /// Does the same if the app is installed. Returns whether it is.
  bool openInShellIfInstalled(const std::string& screen);
  /// Opens the screen of the user's next step: "join" while onboarding is needed, otherwise
  /// "servers".
  void openNextStep();
  /// Open the web page of the first enabled server or of a given server. Do nothing while its
  /// address is unknown.
  void openInBrowser() { openWebPage(port_.primaryAddress()); }
  void openServerInBrowser(const std::string& serverId) { openWebPage(port_.addressOf(serverId)); }

  /// Returns whether no enabled server is joined or has an address.
  [[nodiscard]] bool needsOnboarding() const;
  /// Opens the servers screen because the target of a server could not be resolved. Does so once
  /// per server and run.
  void announceUnresolvedTarget(const ServerEntry& server);
  /// Looks up the internal host name in the background. Only the first call has an effect, and its
  /// result is final for the run.
  void lookUpInternalHost();
  /// Returns the web address of a server whose tunnel is bound to `boundAddress`, or nullopt if
  /// that is nullopt or empty.
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
