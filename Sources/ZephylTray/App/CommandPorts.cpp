#include <utility>

#include <unistd.h>

#include "System/Concurrency/MainLoop.hpp"
#include "System/Concurrency/ThreadPool.hpp"
#include "System/Files/Bundle.hpp"
#include "ZephylTray/App/Ports.hpp"
#include "ZephylTray/Config/Config.hpp"

namespace zephyl::ports {

namespace {

TrayFacts factsOf(const Components& components, const ControlServer& control,
                  const std::string& mode) {
  return {.version = Updater::currentVersion(),
          .pid = ::getpid(),
          .mode = mode,
          .agentInstalled = Config::bundledRuntimeDir() || Config::agentDevBinary(),
          .agentRunning = components.agent->isRunning(),
          .agentPort = components.agentAccess.port(),
          .resourceDirectory = Bundle::main().resourceDirectory(),
          .tailnetProgramsInstalled = Config::tailnetProgramsInstalled(),
          .windowInstalled = DesktopApp::isInstalled(),
          .controlListens = control.isListening()};
}

CommandReports::Port commandReports(const Components& components, ControlServer& control,
                                    const CommandSetup& setup, const CommandOwners& owners) {
  CommandReports::Port port;
  port.tray = [&components, &control, mode = setup.mode] {
    return factsOf(components, control, mode);
  };
  port.agent = [monitor = owners.monitor]() -> const AgentSnapshot& { return monitor->snapshot(); };
  port.agentKnown = [monitor = owners.monitor] { return monitor->hasPolled(); };
  port.servers = &Servers::all;
  port.tailnet = [&components](const std::string& id) -> std::optional<TailnetView> {
    const auto tailnet = components.tailnet->find(id);
    return tailnet ? std::optional(TailnetView::of(*tailnet)) : std::nullopt;
  };
  port.webAddressOf = [windows = owners.windows](const auto& bound) {
    return windows->webAddressOf(bound);
  };
  return port;
}

LogTail logSince(const Components& components, const std::optional<std::string>& serverId,
                 std::uint64_t position) {
  if (!serverId) return components.agent->logSince(position);
  const auto tailnet = components.tailnet->find(*serverId);
  return tailnet ? tailnet->logSince(position) : LogTail{};
}

std::size_t restartTailnets(const TailnetManager& tailnets,
                            const std::optional<std::string>& serverId) {
  std::size_t count = 0;
  for (const auto& each : tailnets.instances()) {
    if (serverId && each->server().id != *serverId) continue;
    each->restart();
    ++count;
  }
  return count;
}

CommandServer::Failure openWindow(WindowLauncher& windows,
                                  const std::optional<std::string>& screen) {
  if (!DesktopApp::isInstalled()) {
    return "Zephyl's window is not installed. Use the tray's menu, a browser and these commands.";
  }
  if (screen) {
    windows.openInShell(*screen);
  } else {
    windows.openDesktopWindow();
  }
  return std::nullopt;
}

}  // namespace

CommandServer::Port commands(const Components& components, ControlServer& control,
                             const CommandSetup& setup, const CommandOwners& owners) {
  CommandServer::Port port;
  port.reports = commandReports(components, control, setup, owners);
  port.log = [&components](const auto& serverId, std::uint64_t position) {
    return logSince(components, serverId, position);
  };
  if (setup.findTrayHost) {
    port.findTrayHost = [&components, find = setup.findTrayHost](auto done) {
      const auto& runtime = components.runtime;
      runtime.pool.submit(
          [find, later = runtime.mainLoop.later(std::move(done))] { later(find()); });
    };
  }
  port.decide = [approvals = owners.approvals](const auto& id, const auto& decision, auto done) {
    approvals->answer(id, decision, [done = std::move(done)](const Result<void>& result) {
      done(result ? CommandServer::Failure() : result.error().message);
    });
  };
  port.join = [servers = owners.servers](std::string_view key) { return servers->redeem(key); };
  port.open = [windows = owners.windows](const auto& screen) {
    return openWindow(*windows, screen);
  };
  port.restartAgent = [&components] { components.agent->restart(); };
  port.restartTailnet = [&components](const auto& serverId) {
    return restartTailnets(*components.tailnet, serverId);
  };
  return port;
}

}  // namespace zephyl::ports
