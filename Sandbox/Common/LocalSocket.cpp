#include "Common/LocalSocket.hpp"

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <utility>

#include <boost/asio/io_context.hpp>
#include <fmt/format.h>

#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace zephyl::sandbox {
namespace asio = boost::asio;
using boost::system::error_code;
namespace {

constexpr std::size_t mostPathBytes = sizeof(sockaddr_un::sun_path) - 1;

/// Everything made while it lives is for the user alone: a socket has no other way to be so from
/// its first moment on.
class PrivateFiles {
 public:
  PrivateFiles() : previous_(::umask(S_IXUSR | S_IRWXG | S_IRWXO)) {}
  ~PrivateFiles() { ::umask(previous_); }
  PrivateFiles(const PrivateFiles&) = delete;
  PrivateFiles& operator=(const PrivateFiles&) = delete;

 private:
  mode_t previous_;
};

error_code tryToConnect(const LocalProtocol::endpoint& endpoint) {
  asio::io_context io;
  LocalProtocol::socket socket(io);
  error_code error;
  socket.open(endpoint.protocol(), error);
  // Not to wait for a program whose queue of clients is full: it is alive.
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
  if (!S_ISSOCK(status.st_mode)) {
    return Failure{fmt::format("{} is there already and no socket; it stays", path)};
  }
  const auto error = tryToConnect(endpoint);
  if (!error || error == asio::error::would_block) {
    return Failure{fmt::format("another program listens on {}", path)};
  }
  if (error != asio::error::connection_refused || ::unlink(path.c_str()) != 0) {
    return Failure{fmt::format("cannot tell whether {} is still in use", path)};
  }
  return {};
}

}  // namespace

Result<LocalProtocol::endpoint> localEndpoint(const std::string& path) {
  if (path.empty()) return Failure{"the socket path is empty"};
  if (path.size() <= mostPathBytes) return LocalProtocol::endpoint(path);
  return Failure{fmt::format("the socket path is {} bytes long, {} is the most: {}", path.size(),
                             mostPathBytes, path)};
}

SocketFile::SocketFile(std::string path) : path_(std::move(path)) {
  struct stat status {};
  if (::lstat(path_.c_str(), &status) != 0) return;
  device_ = status.st_dev;
  inode_ = status.st_ino;
}

SocketFile::~SocketFile() {
  struct stat status {};
  const bool isThere = !path_.empty() && ::lstat(path_.c_str(), &status) == 0;
  if (isThere && status.st_dev == device_ && status.st_ino == inode_) ::unlink(path_.c_str());
}

SocketFile::SocketFile(SocketFile&& other) noexcept
    : path_(std::exchange(other.path_, {})), device_(other.device_), inode_(other.inode_) {}

Result<LocalListener> listenOnLocal(const asio::any_io_executor& executor,
                                    const std::string& path) {
  const auto endpoint = localEndpoint(path);
  if (!endpoint) return endpoint.error();
  if (const auto removed = removeStaleSocket(*endpoint); !removed) return removed.error();

  LocalProtocol::acceptor acceptor(executor);
  error_code error;
  acceptor.open(endpoint->protocol(), error);
  if (!error) {
    const PrivateFiles guard;
    acceptor.bind(*endpoint, error);
  }
  if (error) return Failure{fmt::format("cannot listen on {}: {}", path, error.message())};
  SocketFile file(path);
  acceptor.listen(asio::socket_base::max_listen_connections, error);
  if (error) return Failure{fmt::format("cannot listen on {}: {}", path, error.message())};
  return LocalListener{std::move(acceptor), std::move(file)};
}

}  // namespace zephyl::sandbox
