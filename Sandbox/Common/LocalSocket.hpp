#pragma once

#include <cstddef>
#include <string>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/beast/core/basic_stream.hpp>

#include <sys/types.h>

#include "System/Data/Result.hpp"

/// Stream sockets with a name in the file system, and lines over them.
namespace zephyl::sandbox {

using LocalProtocol = boost::asio::local::stream_protocol;
using LocalStream = boost::beast::basic_stream<LocalProtocol>;

/// Fails if the path is empty or too long for the address of a local socket.
Result<LocalProtocol::endpoint> localEndpoint(const std::string& path);

/// The destructor removes the socket's name, unless another socket has taken its place.
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

/// Listens on the path, for the user only (0600). Replaces a socket without a listener. Fails, and
/// changes nothing, if anything else exists at the path.
Result<LocalListener> listenOnLocal(const boost::asio::any_io_executor& executor,
                                    const std::string& path);

/// Reads the next line, without its end. `received` keeps the bytes after it.
boost::asio::awaitable<Result<std::string>> readLine(LocalStream& stream, std::string& received,
                                                     std::size_t maxBytes);

/// Sends the line and its end. Returns false if the peer has disconnected.
boost::asio::awaitable<bool> writeLine(LocalStream& stream, std::string line);

}  // namespace zephyl::sandbox
