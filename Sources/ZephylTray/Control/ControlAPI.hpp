#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "System/Data/JSON.hpp"
#include "ZephylTray/Actions/FolderSharing.hpp"
#include "ZephylTray/Actions/ServerActions.hpp"
#include "ZephylTray/Control/Diagnostics.hpp"
#include "ZephylTray/Menu/TailnetView.hpp"

namespace zephyl {

class ControlServer;
class MainLoop;

/// Implements the control API: answers requests from the state of the tray's parts and forwards
/// changes to them. Has no state.
///
/// Main thread only, except for `install`.
class ControlAPI {
 public:
  struct Port {
    // State of the tray
    std::function<bool()> tailnetProgramsInstalled;
    std::function<bool()> isEnrolled;  ///< whether this machine has redeemed an invite
    std::function<bool()> anyTailnetRunning;
    std::function<std::optional<TailnetView>()> primaryTailnet;
    std::function<std::optional<TailnetView>(const std::string& serverId)> tailnet;
    std::function<std::vector<Diagnostics::Tailnet>()> tailnetReports;
    std::function<ServerList()> servers;
    std::function<const AgentSnapshot&()> agent;
    std::function<std::optional<std::string>(const std::optional<std::string>& boundAddress)>
        webAddressOf;
    std::function<Diagnostics::Tray()> tray;
    std::function<Diagnostics::Agent()> agentProcess;
    // Changes
    std::function<void()> restartAgent;
    /// Called on the control thread. Completes on the main thread.
    std::function<void(FolderSharing::RootsCompletion)> getRoots;
    std::shared_ptr<ServerActions> serverActions;
    std::shared_ptr<FolderSharing> folderSharing;
  };

  explicit ControlAPI(Port port) : port_(std::move(port)) {}

  /// Sets the handlers of `server`. Must be called before the server is started. `mainLoop` and all
  /// objects that `port` refers to must outlive the server.
  static void install(ControlServer& server, MainLoop& mainLoop, const Port& port);

  /// Return the documents of GET /status, GET /servers and GET /diagnostics.
  [[nodiscard]] json::Object status() const;
  [[nodiscard]] std::vector<json::Object> servers() const;
  [[nodiscard]] json::Object diagnostics() const;

 private:
  static void installFolders(ControlServer& server, MainLoop& mainLoop, const Port& port);

  const Port port_;
};

}  // namespace zephyl
