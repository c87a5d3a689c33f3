#pragma once

#include <string>

#include "Desktop/Client/Records.hpp"

/// The requests to the tray's control API, and what its answers mean.
namespace zephyl::sandbox::desktop {

struct Request {
  std::string method;
  std::string path;
  /// JSON, or empty.
  std::string body = {};
};

/// An answer's status and JSON, as received.
struct Answer {
  int status = 0;
  std::string body;
};

/// The answer's content. Any status but 200 is an error with the API's own message.
Result<json::Value> contentOf(const Answer& answer);

template <typename T>
Result<T> contentAs(const Answer& answer) {
  const auto content = contentOf(answer);
  if (!content) return content.error();
  return json::decode<T>(*content);
}

inline constexpr auto statusPath = "/status";

Request getStatus();       ///< TrayStatus
Request getServers();      ///< ServerList
Request getFolders();      ///< FolderList
Request getDiagnostics();  ///< Diagnostics, and more

/// Joins a server. How it goes shows in its entry of GET /servers.
Request joinServer(const std::string& inviteKey);
/// An empty label removes the user's own.
Request renameServer(const std::string& id, const std::string& label);
/// A color such as "#3366cc"; an empty one removes the user's own.
Request setAccent(const std::string& id, const std::string& accent);
Request setEnabled(const std::string& id, bool enabled);
Request removeServer(const std::string& id);
/// Has the tray ask the user for a folder. Answered when the user has chosen or cancelled.
Request shareFolder(const std::string& id);
/// Shares a folder that the agent shares already with this server as well, or no longer.
Request setFolderShared(const std::string& id, const std::string& root, bool shared);
Request restartAgent();

}  // namespace zephyl::sandbox::desktop
