#include <benchmark/benchmark.h>

#include "ZephylTray/Menu/StatusMenu.hpp"

namespace zephyl {
namespace {

constexpr std::int64_t serverCount = 250;
constexpr std::int64_t folderCount = 1000;

std::string identifier(std::int64_t number) {
  const std::string text = std::to_string(number);
  return "0c6a2f3e-8a55-4a1e-9a70-" + std::string(12 - text.size(), '0') + text;
}

/// A world that must outlive the state, which refers to its agent.
struct Crowd {
  AgentSnapshot agent;
  StatusMenuState state{.agent = agent, .tailnetProgramsFound = true};
};

void addServers(Crowd& crowd) {
  std::vector<ServerEntry> entries;
  auto& connections = crowd.agent.status.emplace().connections.emplace();
  for (std::int64_t number = 0; number < serverCount; ++number) {
    const auto id = identifier(number);
    entries.push_back({.id = id,
                       .serverName = "Server " + std::to_string(number),
                       .address = "https://server.example:8443",
                       .agentId = "agent-" + id,
                       .enabled = true});
    connections.push_back({.serverId = "agent-" + id, .state = AgentState::enrolled});
    crowd.state.tailnets[id] = {
        true, {.boundAddress = "127.100.0.1:80", .activeRelay = "relay"}, true};
  }
  crowd.state.servers = ServerList(std::move(entries));
}

/// Each folder lists `listed` servers. With 0 it is shared with all servers.
void addFolders(Crowd& crowd, std::int64_t listed) {
  for (std::int64_t number = 0; number < folderCount; ++number) {
    auto& root = crowd.agent.roots.emplace_back();
    root.root = "/home/user/projects/folder-" + std::to_string(number);
    auto& ids = root.servers.emplace();
    for (std::int64_t each = 0; each < listed; ++each) {
      ids.push_back(identifier((number + each) % serverCount));
    }
  }
}

/// Expected: within 2 ms if each folder lists up to 25 servers. If each lists all 250, which is
/// unrealistic, reading the 250,000 ids takes most of the time.
void rebuild(benchmark::State& run) {
  Crowd crowd;
  crowd.agent.reachable = true;
  crowd.agent.activity.emplace();
  addServers(crowd);
  addFolders(crowd, run.range(0));
  while (run.KeepRunning()) benchmark::DoNotOptimize(statusMenu(crowd.state));
}
BENCHMARK(rebuild)->Arg(0)->Arg(1)->Arg(5)->Arg(25)->Arg(250)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace zephyl
