#pragma once

#include <memory>

#include <sys/types.h>

#include "System/Data/Result.hpp"
#include "System/Files/FileDescriptor.hpp"

namespace zephyl {

/// Ends the tray's children when the tray is gone, however it went.
///
/// A small process, forked before the tray starts its first thread, shares with the tray a table
/// of the process groups that the tray is responsible for, and waits for the end of a pipe that
/// only the tray holds open. When the tray has ended or was killed, it sends the groups that are
/// left SIGTERM, after a grace of one second SIGKILL, and ends. It leads a session of its own and
/// blocks every signal that can be blocked, so that neither Ctrl-C nor the end of a login takes
/// it first.
///
/// The table is memory, not messages: entering a group cannot block, be lost or come too late,
/// whatever state the guardian is in, and the guardian sleeps as long as the tray lives. Should
/// the guardian be killed, children still have their death signal, but not their groups.
///
/// Owned by `main`; outlives the reactor. `add` and `remove` may be called from any thread.
class Guardian {
 public:
  /// How many groups the table holds: many times what a tray ever starts.
  static constexpr std::size_t maxGroups = 1024;

  /// Forks the guardian. Only while the process has a single thread.
  static Result<Guardian> start();

  Guardian(Guardian&&) noexcept = default;
  /// Has the guardian end what is left, and waits until it is gone: in a moment when no group is
  /// left, as after an orderly shutdown; within little more than the grace otherwise.
  ~Guardian();

  /// Makes the guardian responsible for a process group. False when the table is full: then
  /// nobody would end the group, and it must not be started. Async-signal-safe, so that a forked
  /// child can enter its own group before it runs a program.
  [[nodiscard]] bool add(pid_t group);
  /// The group is gone. Call it while the id cannot have been given to another group yet.
  void remove(pid_t group);

 private:
  struct Groups;
  struct Unmap {
    void operator()(Groups* groups) const;
  };
  using SharedGroups = std::unique_ptr<Groups, Unmap>;

  Guardian(FileDescriptor pipe, pid_t process, SharedGroups groups)
      : pipe_(std::move(pipe)), process_(process), groups_(std::move(groups)) {}

  [[noreturn]] static void standGuard(int pipe, Groups& groups);

  FileDescriptor pipe_;  // its end means the tray's end; nothing is ever written
  pid_t process_;
  SharedGroups groups_;
};

}  // namespace zephyl
