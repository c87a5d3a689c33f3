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

/// What the window shows: the tray's servers, folders and agent as the newest poll reported them,
/// and which of them the user looks at. Knows nothing of widgets, threads or time: the owner calls
/// `refresh` while the window is visible.
///
/// A poll that was under way while something was changed is repeated, so a widget never falls back
/// to the value before a change. The folders are polled apart from the rest, because the tray asks
/// the agent for them, which may take a minute. Lives on one thread, and outlives the requests that
/// it has sent.
class WindowModel {
 public:
  /// The connection to the tray.
  enum class Link {
    waiting,   ///< nothing was answered yet
    answers,   ///< the newest poll was answered
    gone,      ///< the tray does not answer
    replaced,  ///< another run of the tray answers, which refuses the token of this one
    absent     ///< this program was given no access to a tray
  };
  /// `none`: the servers are not known yet.
  enum class Page { none, join, server };
  /// A part of the window that is to get the keyboard, or the question to ask.
  enum class Focus { inviteKey, servers, name, removal };

  using Answered = std::function<void(const Result<Answer>&)>;
  /// Called with the reason when the change was not made.
  using Done = std::function<void(const std::optional<std::string>& failure)>;

  struct Port {
    /// Sends a request to the tray. Calls back later, on the same thread.
    std::function<void(const Request& request, Answered answered)> ask;
    /// Called after anything that the model returns has changed.
    std::function<void()> changed;
  };

  explicit WindowModel(Port port) : port_(std::move(port)) {}
  WindowModel(const WindowModel&) = delete;
  WindowModel& operator=(const WindowModel&) = delete;

  /// There is no tray to ask. Polls nothing from now on.
  void setAbsent();
  /// Polls the tray, unless a poll or a change is under way.
  void refresh();

  [[nodiscard]] Link link() const { return link_; }
  /// Whether the tray has answered a poll at any time.
  [[nodiscard]] bool wasConnected() const { return wasConnected_; }
  /// Whether servers can be joined: the programs of the private network are installed, as far as is
  /// known.
  [[nodiscard]] bool canJoin() const { return !wasConnected_ || state_.status.available; }
  [[nodiscard]] const std::vector<ServerEntry>& servers() const { return state_.servers.servers; }
  /// nullopt while the agent does not answer.
  [[nodiscard]] const std::optional<std::vector<FolderEntry>>& folders() const {
    return folders_.known;
  }
  [[nodiscard]] const AgentLine& agent() const { return agent_; }
  [[nodiscard]] const Joining& joining() const { return joining_; }
  /// Something that the user should know and that has no other place; empty if there is nothing.
  [[nodiscard]] const std::string& notice() const { return notice_; }

  [[nodiscard]] Page page() const;
  /// The server on the page for a server; null on other pages.
  [[nodiscard]] const ServerEntry* selected() const;
  void select(const std::string& id);
  void showJoinPage();
  /// Shows a screen that the tray asks for: "join", "servers", "servers/<id>/rename" or
  /// "servers/<id>/remove". A server that is not known yet is awaited until the next poll.
  void open(const std::string& route);
  /// Returns what is to get the keyboard, once.
  std::optional<Focus> takeFocus() { return std::exchange(focus_, std::nullopt); }

  void join(const std::string& inviteKey);
  /// An empty name removes the user's own.
  void rename(const std::string& id, const std::string& name, Done done);
  void setAccent(const std::string& id, const std::string& accent, Done done);
  void setEnabled(const std::string& id, bool enabled, Done done);
  void remove(const std::string& id, Done done);
  void setFolderShared(const std::string& id, const std::string& root, bool shared, Done done);
  /// Has the tray ask the user for a folder, which may take minutes. Polls go on meanwhile.
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

  /// Sends the next request of a poll. `next` is skipped when the poll has failed or is repeated.
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
