#pragma once

#include <memory>

#include <sys/types.h>

#include "System/Data/Result.hpp"
#include "System/Files/FileDescriptor.hpp"

namespace zephyl {

/// Ends the tray's children when the tray has ended, for whatever reason.
///
/// The guardian is a small process, forked before the tray starts its first thread. It shares a
/// table of process groups with the tray and waits for the end of a pipe that only the tray holds
/// open. When the tray has ended, it sends SIGTERM to the groups in the table, SIGKILL after a
/// grace of one second, and ends. It leads a session of its own and blocks all signals that can be
/// blocked, so that neither Ctrl-C nor the end of a login ends it before the tray.
///
/// The table is shared memory instead of messages, so that adding a group cannot block, be lost or
/// be delayed, regardless of the guardian's state. The guardian sleeps as long as the tray lives.
/// If the guardian is killed, the children still have their death signals, but their groups have no
/// protection.
///
/// Owned by `main`. Must outlive the reactor. `add` and `remove` are callable from any thread.
class Guardian {
 public:
  /// The capacity of the table, many times the number of groups that a tray ever has.
  static constexpr std::size_t maxGroups = 1024;

  /// Forks the guardian. Must be called while the process has a single thread.
  static Result<Guardian> start();

  Guardian(Guardian&&) noexcept = default;
  /// Lets the guardian end the remaining groups, and waits for it to end. Returns at once if the
  /// table is empty, as after an orderly shutdown, otherwise after little more than the grace.
  ~Guardian();

  /// Adds a process group to the table. Returns false if the table is full. The group must not be
  /// started then, because nothing would end it. Async-signal-safe, so that a forked child can add
  /// its own group before it runs a program.
  [[nodiscard]] bool add(pid_t group);
  /// Removes a group that has ended. Must be called before its id can be reused.
  void remove(pid_t group);

 private:
  struct Groups;
  struct Unmap {
    void operator()(Groups* groups) const;
  };
  using SharedGroups = std::unique_ptr<Groups, Unmap>;

  Guardian(FileDescriptor pipe, pid_t process, SharedGroups groups)
      : pipe_(std::move(pipe)), process_(process), groups_(std::move(groups)) {}

  [[noreturn]] static void runGuardian(int pipe, Groups& groups);

  FileDescriptor pipe_;  // nothing is written; its end is the tray's end
  pid_t process_;
  SharedGroups groups_;
};

}  // namespace zephyl
