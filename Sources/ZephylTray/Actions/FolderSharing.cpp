#include "ZephylTray/Actions/FolderSharing.hpp"

#include <algorithm>

#include "System/Concurrency/Weakly.hpp"
#include "ZephylTray/Actions/SharedServers.hpp"

namespace zephyl {

void FolderSharing::shellAddRoot(const std::string& id, const Completion& done) {
  const auto servers = port_.servers();
  if (std::ranges::find(servers, id, &ServerEntry::id) == servers.end()) {
    return done("That is not a Zephyl this machine knows about.");
  }
  const FolderRequest request{.prompt = "Share",
                              .message = "Choose a project folder to share with this Zephyl."};
  pickFolder(request, weakly(this, [id, done](FolderSharing& self,
                                              const Result<std::optional<std::string>>& folder) {
               if (!folder) return done(folder.error().message);
               if (!*folder) return done(std::nullopt);
               self.port_.addRoot(**folder, id, self.foldersChanged(done));
             }));
}

/// Uses the desktop's own picker, or the tray's dialog if the desktop's picker cannot be used.
void FolderSharing::pickFolder(const FolderRequest& request, const PickerCompletion& done) {
  port_.desktopPicker(
      request, weakly(this, [request, done](FolderSharing& self, const FolderChoice& choice) {
        if (choice.answered) return done(choice.answer);
        self.pickFolderInOwnDialog(request, done);
      }));
}

void FolderSharing::pickFolderInOwnDialog(const FolderRequest& request,
                                          const PickerCompletion& done) {
  const auto place = folderDialogs_.emplace(folderDialogs_.end());
  *place =
      port_.ownPicker(request, weakly(this, [place, done](FolderSharing& self, const auto& chosen) {
                        self.folderDialogs_.erase(place);
                        done(chosen);
                      }));
}

void FolderSharing::shellSetRootShared(const std::string& id, const std::string& root, bool shared,
                                       const Completion& done) {
  port_.getRoots(weakly(this, [id, root, shared, done](FolderSharing& self, const Roots& roots) {
    if (!roots) return done(roots.error().message);
    const auto found = std::ranges::find(*roots, root, &SharedRoot::root);
    if (found == roots->end()) return done("That folder is not shared from this machine.");
    self.setShared(*found, id, shared, done);
  }));
}

void FolderSharing::setShared(const SharedRoot& root, const std::string& id, bool shared,
                              const Completion& done) {
  const auto sharing = serversSharing(root, port_.servers(), id, shared);
  if (sharing.empty()) {
    port_.removeRoot(root.root, foldersChanged(done));
  } else {
    port_.setRootServers(root.root, sharing, foldersChanged(done));
  }
}

/// Returns a completion of a change of the shared folders, which polls the agent and then calls
/// `done`.
FolderSharing::RootsCompletion FolderSharing::foldersChanged(const Completion& done) {
  return weakly(this, [done](FolderSharing& self, const Roots& roots) {
    self.port_.refresh();
    done(roots ? std::nullopt : Failure(roots.error().message));
  });
}

}  // namespace zephyl
