#include "Common/LocalSocket.hpp"

#include <cerrno>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <boost/asio/read_until.hpp>
#include <boost/asio/write.hpp>

#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "Common/Async.hpp"
#include "System/Data/Format.hpp"

namespace zephyl::sandbox {
namespace asio = boost::asio;
using boost::system::error_code;
namespace {

constexpr std::size_t maxPathBytes = sizeof(sockaddr_un::sun_path) - 1;

error_code tryToConnect(const LocalProtocol::endpoint& endpoint) {
  asio::io_context io;
  LocalProtocol::socket socket(io);
  error_code error;
  socket.open(endpoint.protocol(), error);
  // Does not block. A program whose queue of clients is full is alive.
  if (!error) socket.native_non_blocking(true, error);
  if (!error && ::connect(socket.native_handle(), endpoint.data(),
                          static_cast<socklen_t>(endpoint.size())) != 0) {
    error.assign(errno, boost::system::system_category());
  }
  return error;
}

Result<void> removeStaleSocket(const LocalProtocol::endpoint& endpoint) {
  const auto path = endpoint.path();
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return {};
  if (!S_ISSOCK(status.st_mode)) return Error{path, " is there already and no socket; it stays"};
  const auto error = tryToConnect(endpoint);
  if (!error || error == asio::error::would_block) {
    return Error{"another program listens on ", path};
  }
  if (error != asio::error::connection_refused || ::unlink(path.c_str()) != 0) {
    return Error{"cannot determine whether ", path, " is still in use"};
  }
  return {};
}

/// Binds with a umask that makes the socket private from the beginning.
void bindPrivately(LocalProtocol::acceptor& acceptor, const LocalProtocol::endpoint& endpoint,
                   error_code& error) {
  const auto previous = ::umask(S_IXUSR | S_IRWXG | S_IRWXO);
  acceptor.bind(endpoint, error);
  ::umask(previous);
}

}  // namespace

Result<LocalProtocol::endpoint> localEndpoint(const std::string& path) {
  if (path.empty()) return Error{"the socket path is empty"};
  if (path.size() <= maxPathBytes) return LocalProtocol::endpoint(path);
  return Error{formatText("the socket path has {} bytes, but at most {} are possible: {}",
                          path.size(), maxPathBytes, path)};
}

SocketFile::SocketFile(std::string path) : path_(std::move(path)) {
  struct stat status {};
  if (::lstat(path_.c_str(), &status) != 0) return;
  device_ = status.st_dev;
  inode_ = status.st_ino;
}

SocketFile::~SocketFile() {
  struct stat status {};
  const bool exists = !path_.empty() && ::lstat(path_.c_str(), &status) == 0;
  if (exists && status.st_dev == device_ && status.st_ino == inode_) ::unlink(path_.c_str());
}

SocketFile::SocketFile(SocketFile&& other) noexcept
    : path_(std::exchange(other.path_, {})), device_(other.device_), inode_(other.inode_) {}

Result<LocalListener> listenOnLocal(const asio::any_io_executor& executor,
                                    const std::string& path) {
  const auto endpoint = localEndpoint(path);
  if (!endpoint) return endpoint.error();
  if (const auto removed = removeStaleSocket(*endpoint); !removed) return removed.error();
  const auto failure = [&](const error_code& error) {
    return Error{"cannot listen on ", path, ": ", error.message()};
  };
  LocalProtocol::acceptor acceptor(executor);
  error_code error;
  acceptor.open(endpoint->protocol(), error);
  if (!error) bindPrivately(acceptor, *endpoint, error);
  if (error) return failure(error);
  SocketFile file(path);
  acceptor.listen(asio::socket_base::max_listen_connections, error);
  if (error) return failure(error);
  return LocalListener{std::move(acceptor), std::move(file)};
}

asio::awaitable<Result<std::string>> readLine(LocalStream& stream, std::string& received,
                                              std::size_t maxBytes) {
  const auto [error, size] = co_await asio::async_read_until(
      stream, asio::dynamic_buffer(received, maxBytes), '\n', asTuple);
  if (error) co_return Error{error.message()};
  auto line = received.substr(0, size - 1);
  received.erase(0, size);
  co_return line;
}

asio::awaitable<bool> writeLine(LocalStream& stream, std::string line) {
  line += '\n';
  const auto [error, size] = co_await asio::async_write(stream, asio::buffer(line), asTuple);
  co_return !error;
}

}  // namespace zephyl::sandbox
