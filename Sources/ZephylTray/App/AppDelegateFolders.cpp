#include <algorithm>

#include "System/Concurrency/MainLoop.hpp"
#include "ZephylTray/Actions/SharedServers.hpp"
#include "ZephylTray/App/AppDelegate.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {

void AppDelegate::shellAddRoot(const std::string& id, const Completion& done) {
  if (!Servers::contains(id)) return done("That is not a Zephyl this machine knows about.");
  pickFolder(
      "Share", "Choose a project folder to share with this Zephyl.",
      weakly([id, done](AppDelegate& self, const Result<std::optional<std::string>>& folder) {
        if (!folder) return done(folder.error().message);
        if (!*folder) return done(std::nullopt);
        self.client_.addRoot(**folder, std::nullopt, {id}, self.foldersChanged(done));
      }));
}

/// Asks with the desktop's own picker, and with the dialogs' where the user could not answer that
/// one. Several may be open, each with a client that waits for its answer.
void AppDelegate::pickFolder(const std::string& prompt, const std::string& message,
                             FolderAnswer done) {
  const FolderRequest request{.prompt = prompt, .message = message};
  desktop_.chooseFolder(
      request,
      weakly([request, done = std::move(done)](AppDelegate& self, const FolderChoice& choice) {
        if (choice.answered) return done(choice.answer);
        auto& open = self.folderDialogs_;
        const auto place = open.emplace(open.end());
        *place = self.dialogs_.chooseFolder(
            request, self.weakly([place, done](AppDelegate& asked, const auto& chosen) {
              asked.folderDialogs_.erase(place);
              done(chosen);
            }));
      }));
}

void AppDelegate::shellSetRootShared(const std::string& id, const std::string& root, bool shared,
                                     const Completion& done) {
  client_.getRoots([client = client_, id, root, shared, done,
                    changed = foldersChanged(done)](Result<std::vector<SharedRoot>> roots) {
    if (!roots) return done(roots.error().message);
    const auto found = std::ranges::find(*roots, root, &SharedRoot::root);
    if (found == roots->end()) return done("That folder is not shared from this machine.");
    const auto servers = serversSharing(*found, Servers::all(), id, shared);
    if (servers.empty()) {
      client.removeRoot(root, changed);
    } else {
      client.setRootServers(root, servers, changed);
    }
  });
}

AgentClient::Completion<std::vector<SharedRoot>> AppDelegate::foldersChanged(
    const Completion& done) {
  const auto refreshed = weakly([](AppDelegate& self) { self.refresh(); });
  return [refreshed, done](const Result<std::vector<SharedRoot>>& roots) {
    refreshed();
    done(roots ? std::nullopt : Failure(roots.error().message));
  };
}

}  // namespace zephyl
