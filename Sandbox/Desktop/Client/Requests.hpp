#pragma once

#include <string>

#include "Desktop/Client/Records.hpp"

/// The requests to the tray's control API, and its answers.
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

/// Returns the answer's content. Any status but 200 is an error with the API's message.
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

/// Joins a server. GET /servers shows the progress.
Request joinServer(const std::string& inviteKey);
/// An empty label removes the user's own label.
Request renameServer(const std::string& id, const std::string& label);
/// A color such as "#3366cc". An empty text removes the user's own color.
Request setAccent(const std::string& id, const std::string& accent);
Request setEnabled(const std::string& id, bool enabled);
Request removeServer(const std::string& id);
/// Makes the tray ask the user for a folder. Answered when the user has chosen or cancelled.
Request shareFolder(const std::string& id);
/// Starts or stops sharing with this server a folder that the agent already shares.
Request setFolderShared(const std::string& id, const std::string& root, bool shared);
Request restartAgent();

}  // namespace zephyl::sandbox::desktop
