#include "ZephylTray/Agent/AgentLaunch.hpp"

#include <filesystem>

#include "System/Data/Format.hpp"
#include "System/Data/JSON.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Files.hpp"
#include "ZephylTray/Config/Config.hpp"

namespace zephyl {

namespace {

constexpr auto agentPortVariable = "AGENT_TRAY_PORT";
constexpr auto serversVariable = "ZEPHYL_SERVERS";
constexpr auto serverURLVariable = "ZEPHYL_SERVER_URL";
constexpr auto socksVariable = "ZEPHYL_SOCKS5";
constexpr auto standaloneVariable = "ZEPHYL_STANDALONE";
constexpr auto modelCacheVariable = "ZEPHYL_MODEL_CACHE_DIR";

void setOrRemove(Environment& environment, const char* name,
                 const std::optional<std::string>& value) {
  if (value) {
    environment[name] = *value;
  } else {
    environment.erase(name);
  }
}

std::optional<std::string> socksAddress(const ServerEntry& server) {
  if (!server.isJoined()) return std::nullopt;
  return formatText("127.0.0.1:{}", server.ports.socks);
}

void describeServers(const std::vector<ServerEntry>& servers, Environment& environment) {
  setOrRemove(environment, serversVariable, AgentLaunch::serversJSON(servers));
  const bool any = !servers.empty();
  setOrRemove(environment, serverURLVariable, any ? servers.front().serverURL() : std::nullopt);
  setOrRemove(
      environment, socksVariable,
      any && Config::tailnetProgramsInstalled() ? socksAddress(servers.front()) : std::nullopt);
}

AgentLaunch packaged(const std::string& runtimeDirectory, Environment environment) {
  environment[standaloneVariable] = "1";
  const std::string modelCache = joinPath(runtimeDirectory, "model-cache");
  setOrRemove(environment, modelCacheVariable,
              fileExists(modelCache) ? std::optional(modelCache) : std::nullopt);
  return {joinPath(runtimeDirectory, "zephyl-agent"), runtimeDirectory, std::move(environment)};
}

/// Required because the shell changes its directory before it executes the program.
std::string absolutePath(const std::string& path) {
  std::error_code failure;
  std::string absolute = std::filesystem::absolute(path, failure);
  return failure ? path : absolute;
}

AgentLaunch developer(const std::string& binary, std::string root, Environment environment) {
  environment.erase(standaloneVariable);
  environment.erase(modelCacheVariable);
  return {absolutePath(binary), std::move(root), std::move(environment)};
}

json::Object describeServer(const ServerEntry& server, const std::string& url) {
  json::Object object{{"url", url}, {"label", server.displayName()}};
  if (const auto socks = socksAddress(server)) object["socks5"] = *socks;
  if (!server.agentId.empty()) object["agentId"] = server.agentId;
  return object;
}

}  // namespace

std::optional<AgentLaunch> AgentLaunch::choose(const std::vector<ServerEntry>& enabledServers,
                                               Environment inherited, std::int64_t port) {
  inherited[agentPortVariable] = std::to_string(port);
  describeServers(enabledServers, inherited);
  if (const auto directory = Config::bundledRuntimeDir()) {
    return packaged(*directory, std::move(inherited));
  }
  const auto binary = Config::agentDevBinary();
  auto root = Config::programRoot();
  if (!binary || !root) return std::nullopt;
  return developer(*binary, *std::move(root), std::move(inherited));
}

std::string AgentLaunch::shellCommand(std::int64_t port) const {
  // Listeners only, because the tray itself is a client of that port.
  const auto cleanUp =
      formatText("lsof -ti tcp:{} -sTCP:LISTEN | xargs kill 2>/dev/null; sleep 0.2", port);
  return formatText("cd {} && {{ {}; }}; exec {}", shellQuoted(workingDirectory), cleanUp,
                    shellQuoted(executable));
}

std::optional<std::string> AgentLaunch::serversJSON(const std::vector<ServerEntry>& servers) {
  json::Array array;
  for (const auto& server : servers) {
    if (const auto url = server.serverURL()) array.push_back(describeServer(server, *url));
  }
  if (array.empty()) return std::nullopt;
  return json::compact(array);
}

}  // namespace zephyl
