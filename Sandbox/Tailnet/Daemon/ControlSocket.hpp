#pragma once

#include <string>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>

#include <sys/types.h>

#include "Tailnet/Common/Control.hpp"
#include "Tailnet/Common/Result.hpp"

namespace zephyl::sandbox {

/// The name of a bound local socket in the file system, removed at the end, unless another socket
/// has taken its place meanwhile.
class SocketFile {
 public:
  explicit SocketFile(std::string path);
  ~SocketFile();
  SocketFile(SocketFile&& other) noexcept;
  SocketFile& operator=(SocketFile&&) = delete;

 private:
  std::string path_;
  dev_t device_ = 0;
  ino_t inode_ = 0;
};

struct ControlSocket {
  control::Protocol::acceptor acceptor;
  SocketFile file;
};

/// Listens on the path, for the user alone (0600). A socket that nobody listens on any more is
/// removed first; anything else that has the path stays and is a failure.
Result<ControlSocket> openControlSocket(const boost::asio::any_io_executor& executor,
                                        const std::string& path);

/// Answers one client until it has had enough, is silent for 10 s or sends a line that is too long.
boost::asio::awaitable<void> serveControl(control::Protocol::socket socket, control::Status status);

}  // namespace zephyl::sandbox
