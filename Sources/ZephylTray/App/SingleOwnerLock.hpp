#pragma once

#include <optional>
#include <string>
#include <variant>

#include <sys/types.h>

#include "System/Data/Result.hpp"
#include "System/Files/FileDescriptor.hpp"

namespace zephyl {

/// Ensures that only one process works in a directory: an advisory lock on a file, held for the
/// lifetime of this value and released by the kernel when the process ends, however it ends. The
/// file stays, because removing it could hand the lock out twice. It holds the process id of its
/// last owner.
///
/// No program that the process starts inherits the lock. A program that the process executes in its
/// own place does after `keepAcrossExec`, so that no other process gets the lock in between.
class SingleOwnerLock {
 public:
  /// Another process has the lock.
  struct Taken {
    std::optional<pid_t> holder;  ///< nullopt if the process has not written its id yet
  };

  /// Takes the lock on the file at `path` without waiting, or the one that this process kept across
  /// an exec. The file (mode 0600) and the directories above it are created if they are missing.
  /// Changes the environment, so it is called before any thread is started.
  static std::variant<SingleOwnerLock, Taken, Error> acquire(const std::string& path);

  /// Lets the program that this process executes next inherit the lock, through a descriptor that
  /// the environment names. Called right before the exec, when no other thread is left.
  void keepAcrossExec() const;

 private:
  explicit SingleOwnerLock(FileDescriptor file) : file_(std::move(file)) {}

  FileDescriptor file_;
};

}  // namespace zephyl
