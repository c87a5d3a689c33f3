#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Desktop/Client/Requests.hpp"
#include "Desktop/Model/AgentLine.hpp"
#include "Desktop/Model/Joining.hpp"

namespace zephyl::sandbox::desktop {

/// The state of the window: the tray's servers, folders and agent according to the newest poll, and
/// the page that is selected. Independent of widgets, threads and time: the owner calls `refresh`
/// while the window is visible.
///
/// A poll that overlaps a change is repeated, so a widget never shows the value before the change
/// again. Folders are polled separately, because the tray requests them from the agent, which may
/// take a minute. Must be used on one thread, and must outlive its requests.
class WindowModel {
 public:
  /// The connection to the tray.
  enum class Link {
    waiting,   ///< no poll was answered yet
    answers,   ///< the newest poll was answered
    gone,      ///< the tray does not answer
    replaced,  ///< another run of the tray answers, which refuses the token of this one
    absent     ///< this program has no access to a tray
  };
  /// `none`: the servers are not known yet.
  enum class Page { none, join, server };
  /// The part of the window that should get the keyboard focus, or the question to ask.
  enum class Focus { inviteKey, servers, name, removal };

  using Answered = std::function<void(const Result<Answer>&)>;
  /// Called with the reason if the change failed.
  using Done = std::function<void(const std::optional<std::string>& failure)>;

  struct Port {
    /// Sends a request to the tray. Calls back later, on the same thread.
    std::function<void(const Request& request, Answered answered)> ask;
    /// Called after every change of the model's state.
    std::function<void()> changed;
  };

  explicit WindowModel(Port port) : port_(std::move(port)) {}
  WindowModel(const WindowModel&) = delete;
  WindowModel& operator=(const WindowModel&) = delete;

  /// Ends polling, because there is no tray.
  void setAbsent();
  /// Polls the tray, unless a poll or a change is under way.
  void refresh();

  [[nodiscard]] Link link() const { return link_; }
  /// Returns whether the tray has ever answered a poll.
  [[nodiscard]] bool wasConnected() const { return wasConnected_; }
  /// Returns whether servers can be joined: the programs of the private network are not known to be
  /// missing.
  [[nodiscard]] bool canJoin() const { return !wasConnected_ || state_.status.available; }
  [[nodiscard]] const std::vector<ServerEntry>& servers() const { return state_.servers.servers; }
  /// nullopt while the agent does not answer.
  [[nodiscard]] const std::optional<std::vector<FolderEntry>>& folders() const {
    return folders_.known;
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
  struct Poll {
    TrayStatus status;
    ServerList servers;
    Diagnostics diagnostics;
  };
  struct Folders {
    std::optional<std::vector<FolderEntry>> known;
    bool isPolled = false;
  };
  struct ServerRoute {
    std::string id;
    Focus focus;
  };

  /// Sends the next request of a poll. `next` is skipped if the poll failed or is repeated.
  template <typename T>
  void pollNext(const Request& request, std::function<void(Result<T>)> next);
  void pollServers();
  void pollDiagnostics();
  void failPoll(Link link);
  void finishPoll();
  void pollFolders();
  void change(const Request& request, Done done);
  void focusOn(const ServerRoute& route);
  void resolveRoute();

  const Port port_;
  Link link_ = Link::waiting;
  bool wasConnected_ = false;
  Poll state_;                // the newest complete one
  std::optional<Poll> poll_;  // under way
  Folders folders_;
  int changesUnderWay_ = 0;
  unsigned changes_ = 0;  // begun or ended
  AgentLine agent_;
  Joining joining_;
  std::string notice_;
  bool joinPageChosen_ = false;
  std::optional<std::string> selected_;
  std::optional<ServerRoute> awaited_;
  std::optional<Focus> focus_;
};

}  // namespace zephyl::sandbox::desktop
