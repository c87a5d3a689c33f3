#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Desktop/Client/Requests.hpp"

namespace zephyl::sandbox::desktop {

/// The state of the tray according to the newest poll: its servers, folders and diagnostics. Sends
/// the requests of polls and changes. Independent of threads and time: the owner calls `refresh`.
///
/// A poll that overlaps a change is repeated, so the value before the change is never shown again.
/// Folders are polled separately, because the tray requests them from the agent, which may take a
/// minute. Must be used on one thread, and must outlive its requests.
class TrayState {
 public:
  /// The connection to the tray.
  enum class Link {
    waiting,   ///< no poll was answered yet
    answers,   ///< the newest poll was answered
    gone,      ///< the tray does not answer
    replaced,  ///< another run of the tray answers, which refuses the token of this one
    absent     ///< this program has no access to a tray
  };

  using Answered = std::function<void(const Result<Answer>&)>;
  /// Called with the reason if the change failed.
  using Done = std::function<void(const std::optional<std::string>& failure)>;

  struct Port {
    /// Sends a request to the tray. Calls back later, on the same thread.
    std::function<void(const Request& request, Answered answered)> ask;
    /// Called after a complete poll. `isFirst`: no earlier poll was complete.
    std::function<void(bool isFirst)> polled;
    /// Called after every other change of the state.
    std::function<void()> changed;
  };

  explicit TrayState(Port port) : port_(std::move(port)) {}
  TrayState(const TrayState&) = delete;
  TrayState& operator=(const TrayState&) = delete;

  /// Ends polling, because there is no tray.
  void setAbsent();
  /// Polls the tray, unless a poll or a change is under way.
  void refresh();
  /// Sends a change. Does not poll until it is answered.
  void change(const Request& request, Done done);
  /// Sends a change that may take minutes. Polling continues meanwhile.
  void changeSlowly(const Request& request, Done done);

  [[nodiscard]] Link link() const { return link_; }
  /// Returns whether the tray has ever answered a poll.
  [[nodiscard]] bool wasConnected() const { return wasConnected_; }
  [[nodiscard]] const TrayStatus& status() const { return state_.status; }
  [[nodiscard]] const std::vector<ServerEntry>& servers() const { return state_.servers.servers; }
  [[nodiscard]] const Diagnostics& diagnostics() const { return state_.diagnostics; }
  /// nullopt while the agent does not answer.
  [[nodiscard]] const std::optional<std::vector<FolderEntry>>& folders() const {
    return folders_.known;
  }

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

  /// Sends the next request of a poll. `next` is skipped if the poll failed or is repeated.
  template <typename T>
  void pollNext(const Request& request, std::function<void(Result<T>)> next);
  void pollServers();
  void pollDiagnostics();
  void failPoll(Link link);
  void finishPoll();
  void pollFolders();

  const Port port_;
  Link link_ = Link::waiting;
  bool wasConnected_ = false;
  Poll state_;                // the newest complete one
  std::optional<Poll> poll_;  // under way
  Folders folders_;
  int changesUnderWay_ = 0;
  unsigned changes_ = 0;  // begun or ended
};

}  // namespace zephyl::sandbox::desktop
