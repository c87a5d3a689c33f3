#pragma once

#include <memory>

#include "Desktop/Desktop.hpp"
#include "Desktop/Dialogs.hpp"
#include "Helpers/Updates/Client/Updater.hpp"
#include "System/Concurrency/Runtime.hpp"
#include "ZephylTray/Actions/DesktopApp.hpp"
#include "ZephylTray/Agent/AgentAccess.hpp"
#include "ZephylTray/Agent/AgentProcess.hpp"
#include "ZephylTray/Tailnet/TailnetManager.hpp"

namespace zephyl {

/// The components of the tray without its own state: the interfaces to the user and the supervisors
/// of other programs. They live as long as the tray. Main thread only.
struct Components {
  Runtime runtime;
  Desktop& desktop;
  Dialogs& dialogs;
  AgentAccess agentAccess;
  std::shared_ptr<AgentProcess> agent;
  std::shared_ptr<TailnetManager> tailnet;
  std::shared_ptr<DesktopApp> desktopApp;
  std::shared_ptr<Updater> updater;
};

}  // namespace zephyl
