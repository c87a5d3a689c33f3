#pragma once

#include <functional>

#include "Helpers/Updates/Protocol/UpdateMessages.hpp"
#include "System/Data/Result.hpp"

namespace zephyl {

/// The tray's side of a command while the command is performed.
struct CommandClient {
  std::function<void(const UpdateProgress&)> report;
  std::function<bool()> hasCancelled;
};

/// Perform a command and return its last report.
UpdateReport perform(const CheckCommand& command, const CommandClient& client);
UpdateReport perform(const DownloadCommand& command, const CommandClient& client);
UpdateReport perform(const InstallCommand& command);

/// Returns when the new version is confirmed or its rollback has failed. After a rollback this
/// process executes the previous version.
Result<void> perform(const WatchCommand& command);
Result<void> perform(const RollBackCommand& command);

}  // namespace zephyl
