#include "ZephylTray/Tailnet/TailnetLaunch.hpp"

#include <utility>

#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Environment.hpp"
#include "System/Files/Files.hpp"
#include "ZephylTray/Config/Config.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {

namespace {

constexpr std::size_t maxSocketPathBytes = 104;

std::string loopback(std::int64_t port) {
  return formatText("127.0.0.1:{}", port);
}

std::vector<std::string> clientArguments(const ServerEntry& server) {
  std::vector<std::string> arguments{"--fingerprint",     *server.tailnetFingerprint,
                                     "--socks5",          loopback(server.ports.socks),
                                     "--state-dir",       Servers::tailnetStateDir(server.id),
                                     "--shim-listen",     loopback(server.ports.shim),
                                     "--tunnel-listen",   server.ports.tunnelHost + ":80",
                                     "--tunnel-fallback", server.ports.tunnelFallbackAddr()};
  if (TailnetLaunch::hasTarget(server)) {
    arguments.insert(arguments.end(), {"--target", *server.address});
  }
  return arguments;
}

}  // namespace

std::optional<TailnetLaunch> TailnetLaunch::choose() {
  auto daemon = Config::tailnetBinary(std::string(TailnetProgram::daemon.name));
  auto client = Config::tailnetBinary(std::string(TailnetProgram::client.name));
  if (!daemon || !client) return std::nullopt;
  return TailnetLaunch{*std::move(daemon), *std::move(client)};
}

ProcessOptions TailnetLaunch::daemon(const ServerEntry& server) const {
  return {.executable = daemonPath,
          .arguments = {"--tun=userspace-networking", "--port=0",
                        "--socks5-server=" + loopback(server.ports.socks),
                        "--statedir=" + Servers::tailnetStateDir(server.id),
                        "--socket=" + Servers::controlSocketPath(server.id)},
          .environment = currentEnvironment()};
}

ProcessOptions TailnetLaunch::client(const ServerEntry& server,
                                     const std::optional<SecretString>& preauthKey) const {
  ProcessOptions options{.executable = clientPath,
                         .arguments = clientArguments(server),
                         .environment = currentEnvironment()};
  options.environment["ZEPHYL_TAILSCALED_SOCKET"] = Servers::controlSocketPath(server.id);
  if (preauthKey) options.environment["ZEPHYL_PREAUTH_KEY"] = *preauthKey;
  return options;
}

bool TailnetLaunch::hasTarget(const ServerEntry& server) {
  return !isBlank(server.address.value_or(""));
}

std::vector<std::string> TailnetLaunch::prepareDirectories(const ServerEntry& server) {
  std::vector<std::string> obstacles;
  if (const auto made = createDirectories(Servers::tailnetStateDir(server.id)); !made) {
    obstacles.push_back("could not create tailnet state dir: " + made.error().message);
  }
  const std::string socket = Servers::controlSocketPath(server.id);
  if (const auto made = createDirectories(parentDirectory(socket)); !made) {
    obstacles.push_back("could not create socket dir: " + made.error().message);
  }
  (void)removePath(socket);
  if (socket.size() >= maxSocketPathBytes) {
    obstacles.push_back(
        formatText("socket path is {} bytes; macOS caps it at {}. tailscaled will fail to bind: {}",
                   socket.size(), maxSocketPathBytes, socket));
  }
  return obstacles;
}

}  // namespace zephyl
