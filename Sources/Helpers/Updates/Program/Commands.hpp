#pragma once

#include <functional>

#include "Helpers/Updates/Protocol/UpdateMessages.hpp"

namespace zephyl {

/// Where a command's reports go, and whether its outcome is still wanted.
struct Conversation {
  std::function<void(const UpdateReport&)> report;
  std::function<bool()> isOver;
};

/// Does what a command says; returns its last report.
UpdateReport perform(const CheckCommand& command, const Conversation& conversation);
UpdateReport perform(const DownloadCommand& command, const Conversation& conversation);
UpdateReport perform(const InstallCommand& command, const Conversation& conversation);
/// Returns when the new version has come up, or nothing can be done; otherwise this process
/// becomes the previous version.
UpdateReport perform(const WatchCommand& command, const Conversation& conversation);
UpdateReport perform(const TakeBackCommand& command, const Conversation& conversation);

}  // namespace zephyl
