#pragma once

#include <string>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/local/stream_protocol.hpp>

#include <sys/types.h>

#include "Common/Result.hpp"

/// Stream sockets with a name in the file system.
namespace zephyl::sandbox {

using LocalProtocol = boost::asio::local::stream_protocol;

/// A path that does not fit into the system's address of a local socket is a failure.
Result<LocalProtocol::endpoint> localEndpoint(const std::string& path);

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

struct LocalListener {
  LocalProtocol::acceptor acceptor;
  SocketFile file;
};

/// Listens on the path, for the user alone (0600). A socket that nobody listens on any more is
/// removed first; anything else that has the path stays and is a failure.
Result<LocalListener> listenOnLocal(const boost::asio::any_io_executor& executor,
                                    const std::string& path);

}  // namespace zephyl::sandbox
