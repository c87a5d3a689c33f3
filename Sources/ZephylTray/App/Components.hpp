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

/// What the tray consists of apart from its own state: the ways to the user, and the components
/// that supervise other programs. One of each, as long as the tray runs. Main thread only.
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
