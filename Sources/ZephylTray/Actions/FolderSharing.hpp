#pragma once

#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Desktop/Desktop.hpp"
#include "Desktop/Dialogs.hpp"
#include "System/Data/Result.hpp"
#include "ZephylTray/Agent/AgentRecords.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {

/// Shares folders of this machine with servers, on request of the desktop app over the control API.
///
/// Main thread only. Owned by a `shared_ptr`. Pickers and requests hold it weakly.
class FolderSharing : public std::enable_shared_from_this<FolderSharing> {
 public:
  /// A message for the user, or nullopt for success.
  using Failure = std::optional<std::string>;
  using Completion = std::function<void(Failure)>;
  using Roots = Result<std::vector<SharedRoot>>;
  using RootsCompletion = std::function<void(Roots)>;
  using PickerCompletion = std::function<void(Result<std::optional<std::string>>)>;

  /// Each completion is called once, later, on the main thread.
  struct Port {
    // The agent
    std::function<void(RootsCompletion)> getRoots;
    std::function<void(const std::string& path, const std::string& serverId, RootsCompletion)>
        addRoot;
    std::function<void(const std::string& path, RootsCompletion)> removeRoot;
    std::function<void(const std::string& path, const std::vector<std::string>& serverIds,
                       RootsCompletion)>
        setRootServers;
    /// Polls the agent, because the shared folders have changed.
    std::function<void()> refresh;
    // The user
    std::function<void(const FolderRequest&, std::function<void(FolderChoice)>)> desktopPicker;
    /// As `Dialogs::chooseFolder`.
    std::function<Dialogs::Handle(const FolderRequest&, PickerCompletion)> ownPicker;
    // The registry
    std::function<ServerList()> servers;
  };

  explicit FolderSharing(Port port) : port_(std::move(port)) {}

  /// Lets the user choose a folder and shares it with a server. Cancelling is a success.
  void shellAddRoot(const std::string& id, const Completion& done);
  /// Shares a folder with a server, or stops sharing it. Removes a folder that is then shared with
  /// no server.
  void shellSetRootShared(const std::string& id, const std::string& root, bool shared,
                          const Completion& done);

 private:
  void pickFolder(const FolderRequest& request, const PickerCompletion& done);
  void pickFolderInOwnDialog(const FolderRequest& request, const PickerCompletion& done);
  void setShared(const SharedRoot& root, const std::string& id, bool shared,
                 const Completion& done);
  RootsCompletion foldersChanged(const Completion& done);

  const Port port_;
  std::list<Dialogs::Handle> folderDialogs_;  // each has a client that waits for the answer
};

}  // namespace zephyl
