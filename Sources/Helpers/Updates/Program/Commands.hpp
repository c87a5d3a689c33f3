#pragma once

#include <functional>

#include "Helpers/Updates/Protocol/UpdateMessages.hpp"
#include "System/Data/Result.hpp"

namespace zephyl {

/// The tray's side of a command, as seen while it is performed.
struct CommandClient {
  std::function<void(const UpdateProgress&)> report;
  std::function<bool()> hasCancelled;
};

/// The following perform a command and return its last report.
UpdateReport perform(const CheckCommand& command, const CommandClient& client);
UpdateReport perform(const DownloadCommand& command, const CommandClient& client);
UpdateReport perform(const InstallCommand& command);

/// Returns when the new version is confirmed, or when its rollback fails. After a rollback this
/// process becomes the previous version.
Result<void> perform(const WatchCommand& command);
Result<void> perform(const RollBackCommand& command);

}  // namespace zephyl
