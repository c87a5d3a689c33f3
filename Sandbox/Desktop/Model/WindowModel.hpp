#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Desktop/Client/Requests.hpp"
#include "Desktop/Model/AgentLine.hpp"
#include "Desktop/Model/Joining.hpp"
#include "Desktop/Model/TrayState.hpp"

namespace zephyl::sandbox::desktop {

/// The state of the window: that of the tray, and the page that is selected. Independent of
/// widgets, threads and time: the owner calls `refresh` while the window is visible. Must be used
/// on one thread, and must outlive its requests.
class WindowModel {
 public:
  using Link = TrayState::Link;
  /// `none`: the servers are not known yet.
  enum class Page { none, join, server };
  /// The part of the window that should get the keyboard focus, or the question to ask.
  enum class Focus { inviteKey, servers, name, removal };

  using Answered = TrayState::Answered;
  using Done = TrayState::Done;

  struct Port {
    /// Sends a request to the tray. Calls back later, on the same thread.
    std::function<void(const Request& request, Answered answered)> ask;
    /// Called after every change of the model's state.
    std::function<void()> changed;
  };

  explicit WindowModel(Port port);

  /// Ends polling, because there is no tray.
  void setAbsent() { tray_.setAbsent(); }
  /// Polls the tray, unless a poll or a change is under way.
  void refresh() { tray_.refresh(); }

  [[nodiscard]] Link link() const { return tray_.link(); }
  /// Returns whether the tray has ever answered a poll.
  [[nodiscard]] bool wasConnected() const { return tray_.wasConnected(); }
  /// Returns whether servers can be joined: the programs of the private network are not known to be
  /// missing.
  [[nodiscard]] bool canJoin() const { return !wasConnected() || tray_.status().available; }
  [[nodiscard]] const std::vector<ServerEntry>& servers() const { return tray_.servers(); }
  /// nullopt while the agent does not answer.
  [[nodiscard]] const std::optional<std::vector<FolderEntry>>& folders() const {
    return tray_.folders();
  }
  [[nodiscard]] const AgentLine& agent() const { return agent_; }
  [[nodiscard]] const Joining& joining() const { return joining_; }
  /// Returns a message for the user that belongs to no page, or an empty text.
  [[nodiscard]] const std::string& notice() const { return notice_; }

  [[nodiscard]] Page page() const;
  /// The server on the page for a server; null on other pages.
  [[nodiscard]] const ServerEntry* selected() const;
  void select(const std::string& id);
  void showJoinPage();
  /// Shows a screen that the tray requests: "join", "servers", "servers/<id>/rename" or
  /// "servers/<id>/remove". Waits until the next poll if the server is not known yet.
  void open(const std::string& route);
  /// Returns, and resets, the part that should get the keyboard focus.
  std::optional<Focus> takeFocus() { return std::exchange(focus_, std::nullopt); }

  void join(const std::string& inviteKey);
  /// An empty name removes the user's own name.
  void rename(const std::string& id, const std::string& name, Done done);
  void setAccent(const std::string& id, const std::string& accent, Done done);
  void setEnabled(const std::string& id, bool enabled, Done done);
  void remove(const std::string& id, Done done);
  void setFolderShared(const std::string& id, const std::string& root, bool shared, Done done);
  /// Makes the tray ask the user for a folder, which may take minutes. Polling continues meanwhile.
  void shareFolder(const std::string& id, Done done);
  void restartAgent(Done done);
  /// Calls back with the diagnostics as indented JSON.
  void copyDiagnostics(std::function<void(const Result<std::string>&)> done);

 private:
  struct ServerRoute {
    std::string id;
    Focus focus;
  };

  void handlePoll(bool isFirst);
  void focusOn(const ServerRoute& route);
  void resolveRoute();

  const Port port_;
  TrayState tray_;
  AgentLine agent_;
  Joining joining_;
  std::string notice_;
  bool joinPageChosen_ = false;
  std::optional<std::string> selected_;
  std::optional<ServerRoute> awaited_;
  std::optional<Focus> focus_;
};

}  // namespace zephyl::sandbox::desktop
