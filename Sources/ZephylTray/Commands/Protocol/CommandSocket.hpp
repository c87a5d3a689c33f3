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
  /// Where the socket of a base directory may lie, the first choice first:
  /// $XDG_RUNTIME_DIR/com.zephyl.tray/<hash of the base directory>.sock, and `tray.sock` in the
  /// base directory. A client whose environment names no runtime directory also looks into
  /// /run/user/<user id>, where the session may have one.
  static std::vector<std::string> places(const std::string& baseDirectory);

  /// Listens at the first place that can be used. The directory below the runtime directory is
  /// made with mode 0700; if it belongs to another user or is open to others, a line is logged and
  /// the second place is used. The socket has mode 0600. Replaces a socket that an earlier tray has
  /// left, so the caller must hold the lock of the base directory.
  static Result<CommandSocket> listen(const std::string& baseDirectory);

  CommandSocket(CommandSocket&&) = default;
  CommandSocket& operator=(CommandSocket&&) = delete;
  /// Removes the socket's file, unless another socket has taken its place.
  ~CommandSocket();

  [[nodiscard]] int descriptor() const { return socket_.get(); }
  [[nodiscard]] const std::string& path() const { return path_; }

  /// Connects to the socket at `path` without waiting. The error number is ENOENT or ECONNREFUSED
  /// if nobody listens there, EAGAIN if too many connections wait to be accepted, and EPERM if the
  /// listener belongs to another user.
  static boost::system::result<FileDescriptor> connect(const std::string& path);

  /// Whether the process at the other end of a connection has the effective user id of this one.
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
