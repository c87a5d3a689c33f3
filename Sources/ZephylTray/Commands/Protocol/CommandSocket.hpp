#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

#include "System/Data/Result.hpp"
#include "System/Files/FileDescriptor.hpp"

namespace zephyl {

/// The local socket through which commands reach the tray of one base directory. Both sides accept
/// only a peer of the same user.
class CommandSocket {
 public:
  /// Returns the possible paths of a base directory's socket, the preferred one first:
  /// $XDG_RUNTIME_DIR/com.zephyl.tray/<hash of the base directory>.sock, and `tray.sock` in the
  /// base directory. A client whose environment has no runtime directory also tries /run/user/<user
  /// id>, which the session may use.
  static std::vector<std::string> places(const std::string& baseDirectory);

  /// Listens at the first usable path. Creates the directory below the runtime directory with mode
  /// 0700. If that directory belongs to another user or is accessible to others, logs a line and
  /// uses the second path. The socket has mode 0600. Replaces a socket of an earlier tray, so the
  /// caller must hold the lock of the base directory.
  static Result<CommandSocket> listen(const std::string& baseDirectory);

  CommandSocket(CommandSocket&&) = default;
  CommandSocket& operator=(CommandSocket&&) = delete;
  /// Removes the socket's file unless another socket has replaced it.
  ~CommandSocket();

  [[nodiscard]] int descriptor() const { return socket_.get(); }
  [[nodiscard]] const std::string& path() const { return path_; }

  /// Connects to the socket at `path` without waiting. The error number is ENOENT or ECONNREFUSED
  /// if no program listens there, EAGAIN if too many connections are pending, and EPERM if the
  /// listener belongs to another user.
  static boost::system::result<FileDescriptor> connect(const std::string& path);

  /// Returns whether the process at the other end of a connection has the same effective user id.
  static bool peerIsThisUser(int connection);

 private:
  CommandSocket(FileDescriptor socket, std::string path);
  static Result<CommandSocket> listenAt(const std::string& path);

  FileDescriptor socket_;
  std::string path_;
  dev_t device_ = 0;  // of the socket's file
  ino_t inode_ = 0;
};

}  // namespace zephyl
