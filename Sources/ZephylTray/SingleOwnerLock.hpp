#pragma once

#include <optional>
#include <string>
#include <variant>

#include <sys/types.h>

#include "System/FileDescriptor.hpp"
#include "System/Result.hpp"

namespace zephyl {

/// Says that this process, and no other, works in a directory: an advisory lock on a file, held
/// as long as this value lives and given back by the kernel when the process ends, however it
/// ends. No program that the process starts inherits it. The file stays, since removing it could
/// hand the lock out twice; it holds the process id of its last owner.
class SingleOwnerLock {
 public:
  /// Somebody else has the lock.
  struct Taken {
    std::optional<pid_t> holder;  ///< none when it has not said yet who it is
  };

  /// Takes the lock on the file at `path` without waiting. The file (mode 0600) and the
  /// directories above it are made when they are missing.
  static std::variant<SingleOwnerLock, Taken, Error> acquire(const std::string& path);

 private:
  explicit SingleOwnerLock(FileDescriptor file) : file_(std::move(file)) {}

  FileDescriptor file_;
};

}  // namespace zephyl
