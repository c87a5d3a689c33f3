#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "System/Data/Secret.hpp"
#include "System/Processes/ChildProcess.hpp"
#include "ZephylTray/Registry/ServerEntry.hpp"

namespace zephyl {

/// A program of a tailnet: its name in messages, and the tag of its lines in the log.
struct TailnetProgram {
  std::string_view name;
  std::string_view tag;

  static const TailnetProgram daemon;
  static const TailnetProgram client;
};
inline constexpr TailnetProgram TailnetProgram::daemon{"tailscaled", "tailscaled"};
inline constexpr TailnetProgram TailnetProgram::client{"zephyl-tailnet", "tailnet"};

/// The commands that start the two programs of a server's tailnet. Functions of the server, the
/// settings and the tray's environment. The caller adds the callbacks.
struct TailnetLaunch {
  std::string daemonPath;
  std::string clientPath;

  /// Returns the installed programs, or nullopt if one is missing.
  static std::optional<TailnetLaunch> choose();

  [[nodiscard]] ProcessOptions daemon(const ServerEntry& server) const;
  /// `server` must be joined. The client receives `preauthKey` in its environment, if it is set.
  [[nodiscard]] ProcessOptions client(const ServerEntry& server,
                                      const std::optional<SecretString>& preauthKey) const;

  /// Returns whether the client receives the address of the server, as its target.
  static bool hasTarget(const ServerEntry& server);

  /// Creates the directories of both programs and removes the socket of an earlier daemon. Returns
  /// a message for each obstacle. The programs can be started nevertheless and report it, too.
  static std::vector<std::string> prepareDirectories(const ServerEntry& server);
};

}  // namespace zephyl
