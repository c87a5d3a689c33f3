#pragma once

#include <optional>
#include <string>
#include <variant>

#include <sys/types.h>

#include "System/Data/Result.hpp"
#include "System/Files/FileDescriptor.hpp"

namespace zephyl {

/// Ensures that only one process uses a directory, by an advisory lock on a file. The lock is held
/// for the lifetime of this object and released by the kernel when the process ends. The file is
/// never removed, because two processes could hold locks on different files of that name otherwise.
/// It contains the process id of its last owner.
///
/// Programs that the process starts do not inherit the lock. A program that the process executes in
/// its own place inherits it after `keepAcrossExec`, so that no other process gets the lock in
/// between.
class SingleOwnerLock {
 public:
  /// The result if another process holds the lock.
  struct Taken {
    std::optional<pid_t> holder;  ///< nullopt if the process has not written its id yet
  };

  /// Acquires the lock on the file at `path` without waiting, or adopts the lock that this process
  /// kept across an exec. Creates the file (mode 0600) and missing parent directories. Must be
  /// called before any thread is started, because it changes the environment.
  static std::variant<SingleOwnerLock, Taken, Error> acquire(const std::string& path);

  /// Lets the next program that this process executes inherit the lock, through a descriptor that
  /// the environment names. Must be called right before the exec, when no other thread is left.
  void keepAcrossExec() const;

 private:
  explicit SingleOwnerLock(FileDescriptor file) : file_(std::move(file)) {}

  FileDescriptor file_;
};

}  // namespace zephyl
